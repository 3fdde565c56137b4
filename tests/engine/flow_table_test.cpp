#include "flow_table.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>

namespace corvo::engine {
namespace {

FlowKey key_number(uint64_t number) {
    FlowKey key;
    key.words[0] = number;
    key.words[5] = PROTO_UDP;
    return key;
}

/** Forgets what has been idle for a minute, and tells whether that was the end of a round. */
bool expire(FlowTable& table, uint64_t now_ms, uint32_t budget) {
    return table.go_round(budget, [&](Flow& flow) {
        if (now_ms - flow.last_seen_ms >= 60000) table.remove(flow);
    });
}

// Flows come, are found again and are forgotten in a random order: the table must agree with a plain map.
TEST(FlowTable, FindsEveryFlowThroughGrowthAndRemoval) {
    constexpr uint32_t LIMIT = 3000;
    FlowTable table(LIMIT);
    std::map<uint64_t, std::pair<uint64_t, uint32_t>> expected;  // last seen, packets
    std::mt19937 random(1);
    for (uint64_t now_ms = 0; now_ms < 400000; now_ms += 4) {
        uint64_t number = random() % 4000;
        Flow* flow = table.find_or_add(key_number(number));
        if (flow) {
            auto& [last_seen_ms, packets] = expected[number];
            ASSERT_EQ(flow->packets[0], packets);
            flow->packets[0]++, packets++;
            flow->last_seen_ms = last_seen_ms = now_ms;
        } else {
            ASSERT_EQ(table.size(), LIMIT);
            ASSERT_EQ(expected.count(number), 0u);
        }
        if (now_ms % 40000 != 0) continue;
        while (!expire(table, now_ms, 100))
            continue;
        std::erase_if(expected, [&](const auto& e) { return now_ms - e.second.first >= 60000; });
        ASSERT_EQ(table.size(), expected.size());
    }
}

TEST(FlowTable, GoesOnWithItsRoundWithinTheBudget) {
    FlowTable table(1000);
    for (uint64_t i = 0; i < 1000; i++)
        table.find_or_add(key_number(i));
    EXPECT_FALSE(expire(table, 100000, 400));
    EXPECT_EQ(table.size(), 600u);
    EXPECT_FALSE(expire(table, 100000, 400));
    EXPECT_TRUE(expire(table, 100000, 400));
    EXPECT_EQ(table.size(), 0u);
}

// Who chooses addresses and ports must not be able to choose slots: keys that differ in few bits, in two
// words at once too, spread as those that have nothing to do with each other.
TEST(KeyedHash, SpreadsStructuredKeys) {
    const KeyedHash hash;
    std::set<uint32_t> hashes;
    std::set<uint32_t> slots;
    constexpr uint32_t KEYS = 4096;
    for (uint32_t i = 0; i < KEYS; i++) {
        FlowKey key;  // bit 63 of one word and bits 63 and 31 of the next, in six places
        for (int place = 0; place < 6; place++) {
            if (!(i >> place & 1)) continue;
            key.words[place] ^= uint64_t{1} << 63;
            key.words[(place + 1) % 6] ^= uint64_t{1} << 63 | uint64_t{1} << 31;
        }
        key.words[4] ^= i >> 6;
        const auto value = static_cast<uint32_t>(hash(key.words));
        hashes.insert(value);
        slots.insert(value % KEYS);
    }
    EXPECT_GT(hashes.size(), KEYS - 8);
    EXPECT_GT(slots.size(), KEYS / 2) << "63 % are taken by chance";
}

// The hash's own vectors come with a key that isn't ours; that different seeds differ is what matters.
TEST(KeyedHash, DependsOnItsSeed) {
    EXPECT_NE(KeyedHash()(FlowKey().words), KeyedHash()(FlowKey().words));
}

}  // namespace
}  // namespace corvo::engine
