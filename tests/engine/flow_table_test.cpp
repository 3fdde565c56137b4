#include "flow_table.h"

#include <gtest/gtest.h>

#include <map>
#include <random>

namespace corvo::engine {
namespace {

FlowKey key_number(uint64_t number) {
    FlowKey key;
    key.words[0] = number;
    key.words[5] = PROTO_UDP;
    return key;
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
            ASSERT_EQ(flow->packets, packets);
            flow->packets++, packets++;
            flow->last_seen_ms = last_seen_ms = now_ms;
        } else {
            ASSERT_EQ(table.size(), LIMIT);
            ASSERT_EQ(expected.count(number), 0u);
        }
        if (now_ms % 40000 != 0) continue;
        while (!table.expire(now_ms, 100))
            continue;
        std::erase_if(expected, [&](const auto& e) { return now_ms - e.second.first >= 60000; });
        ASSERT_EQ(table.size(), expected.size());
    }
}

TEST(FlowTable, GoesOnWithItsRoundWithinTheBudget) {
    FlowTable table(1000);
    for (uint64_t i = 0; i < 1000; i++)
        table.find_or_add(key_number(i));
    EXPECT_FALSE(table.expire(100000, 400));
    EXPECT_EQ(table.size(), 600u);
    EXPECT_FALSE(table.expire(100000, 400));
    EXPECT_TRUE(table.expire(100000, 400));
    EXPECT_EQ(table.size(), 0u);
}

}  // namespace
}  // namespace corvo::engine
