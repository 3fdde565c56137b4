// The pieces that need no engine around them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <random>
#include <set>

#include "attributes.h"
#include "engine_error.h"
#include "flow_table.h"
#include "frame.h"
#include "health.h"
#include "options.h"
#include "ranking.h"
#include "support/client.h"
#include "support/error_of.h"
#include "support/temp_dir.h"
#include "tools/captures/frame_builder.h"

namespace corvo::engine {
namespace {

using test::Bytes;
using test::parse;
using test::Path;
using testing::HasSubstr;

const Path V4{"10.0.0.1", "10.0.0.2", 1000, 2000};
const Path V6{"fd00::1", "fd00::2", 1000, 2000};

Bytes udp(Path path, int vlan = -1, Bytes extensions = {}) {
    path.vlan = vlan;
    path.ipv6_extensions = extensions;
    return test::udp_frame(path, test::from_text("payload"));
}

Bytes patched(Bytes frame, size_t at, const Bytes& bytes) {
    std::copy(bytes.begin(), bytes.end(), frame.begin() + static_cast<long>(at));
    return frame;
}

Bytes cut(Bytes frame, size_t length) {
    frame.resize(length);
    return frame;
}

Bytes tagged(Bytes frame, const Bytes& tag) {
    frame.insert(frame.begin() + 12, tag.begin(), tag.end());
    return frame;
}

/** The frame's packet inside another packet. */
Bytes in_ip(const Bytes& frame, const Path& outer = V4) {
    return test::ip_frame(outer, frame[14] >> 4 == 4 ? 4 : 41, {frame.begin() + 14, frame.end()});
}

TEST(Frame, TellsWhyAFrameCannotBeUsed) {
    Bytes five_tags = udp(V4, 1);
    for (int i = 0; i < 4; ++i)
        five_tags = tagged(five_tags, {0x88, 0xa8, 0, 1});
    const std::tuple<const char*, Bytes, api::pkt_error_e> cases[] = {
        {"nothing", {}, api::PKT_TRIMMED_L3},
        {"ARP", test::ether_frame(test::ETHER_ARP, Bytes(28)), api::PKT_NON_IP},
        {"the other version's header", patched(udp(V4), 14, {0x65}), api::PKT_NON_IP},
        {"five tags", five_tags, api::PKT_NON_IP},
        {"half a tag", cut(udp(V4, 1), 16), api::PKT_TRIMMED_L3},
        {"no IP header", cut(udp(V4), 14), api::PKT_TRIMMED_L3},
        {"half an IPv4 header", cut(udp(V4), 33), api::PKT_TRIMMED_L3},
        {"an IPv4 header of 16 bytes", patched(udp(V4), 14, {0x44}), api::PKT_TRIMMED_L3},
        {"IPv4 options behind the end", patched(cut(udp(V4), 50), 14, {0x4f}), api::PKT_TRIMMED_L3},
        {"an IPv4 packet shorter than its header", patched(udp(V4), 16, {0, 19}), api::PKT_TRIMMED_L3},
        {"an IPv4 packet that ends in its UDP header", patched(udp(V4), 16, {0, 27}), api::PKT_OK},
        {"half a UDP header", cut(udp(V4), 41), api::PKT_OK},
        {"half a TCP header", cut(test::tcp_frame(V4, {}, {}), 53), api::PKT_OK},
        {"a later IPv4 fragment", patched(udp(V4), 20, {0x00, 0x01}), api::PKT_NON_FFRAG},
        {"the first IPv4 fragment", patched(udp(V4), 20, {0x20, 0x00}), api::PKT_OK},
        {"half an IPv6 header", cut(udp(V6), 53), api::PKT_TRIMMED_L3},
        {"an IPv6 extension behind the end", patched(udp(V6, -1, {0}), 55, {200}), api::PKT_TRIMMED_L3},
        {"an IPv6 fragment", patched(udp(V6, -1, {44}), 56, {0x00, 0x08}), api::PKT_IPV6_FRAG},
        {"the first IPv6 fragment", patched(udp(V6, -1, {44}), 56, {0x00, 0x01}), api::PKT_OK},
        {"an inner packet that isn't one", test::ip_frame(V4, 4, Bytes(40, 0x65)), api::PKT_NON_IP},
        {"half an inner header", test::ip_frame(V4, 4, Bytes(10, 0x45)), api::PKT_TRIMMED_L3},
        {"five packets in one", in_ip(in_ip(in_ip(in_ip(in_ip(udp(V4)))))), api::PKT_NON_IP},
        {"an IPv6 fragment that is the whole", patched(udp(V6, -1, {44}), 56, {0, 0}), api::PKT_OK},
    };
    for (const auto& [what, frame, error] : cases)
        EXPECT_EQ(decode_frame(frame.data(), frame.size()).error, error) << what;
}

TEST(Frame, FindsTheTransportHeaderBehindTagsExtensionsAndOuterPackets) {
    const Bytes frames[] = {udp(V4),
                            udp(V4, 7),
                            tagged(udp(V4, 7), {0x88, 0xa8, 0, 9}),
                            udp(V6),
                            udp(V6, 7, {0, 43, 60}),
                            in_ip(udp(V4)),
                            in_ip(udp(V6)),
                            in_ip(in_ip(udp(V4), V6))};
    for (Bytes bytes : frames) {
        const uint16_t length = decode_frame(bytes.data(), bytes.size()).l3_len;
        bytes.resize(bytes.size() + 50);  // padding isn't part of the packet
        const Frame frame = decode_frame(bytes.data(), bytes.size());
        EXPECT_EQ(std::tie(frame.error, frame.protocol, frame.src_port, frame.dst_port, frame.l3_len),
                  std::tuple(api::PKT_OK, PROTO_UDP, 1000, 2000, length));
    }
}

// Flows come, are found again and are forgotten in a random order: the table must agree with a plain map.
TEST(FlowTable, FindsEveryFlowThroughGrowthAndRemoval) {
    constexpr uint32_t LIMIT = 3000;
    FlowTable table(LIMIT);
    std::map<uint64_t, std::pair<uint64_t, uint32_t>> expected;  // last seen, packets
    std::mt19937 random(1);
    for (uint64_t now_ms = 0; now_ms < 400000; now_ms += 4) {
        uint64_t number = random() % 4000;
        Flow* flow = table.find_or_add({{number}});
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
        for (bool at_end = false; !at_end;) {
            uint32_t visited = 0;
            at_end = table.go_round(100, [&](Flow& flow) {
                visited++;
                if (now_ms - flow.last_seen_ms >= 60000) table.remove(flow);
            });
            ASSERT_LE(visited, 100u);
        }
        std::erase_if(expected, [&](const auto& e) { return now_ms - e.second.first >= 60000; });
        ASSERT_EQ(table.size(), expected.size());
    }
}

// Whoever chooses addresses and ports must not be able to choose slots: keys that differ in a few bits, even
// in two words at once, spread like unrelated ones.
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
    EXPECT_GT(slots.size(), KEYS / 2) << "random keys take 63 %";
    EXPECT_NE(KeyedHash()(FlowKey().words), KeyedHash()(FlowKey().words)) << "the seed makes no difference";
}

TEST(Ranking, ReturnsWhatSortingWouldInPiecesThatFitTheBudget) {
    static uint64_t now_ms = 0;
    const ClockFn clocks[] = {[] { return now_ms; }, [] { return ++now_ms; }};
    for (const uint64_t values : {uint64_t{1}, uint64_t{50}, uint64_t{UINT32_MAX}}) {
        std::mt19937 random(7);
        std::vector<Ranked> expected;
        Ranking ranking;
        for (uint32_t i = 0; i < 20000; i++) {
            expected.push_back({random() % values, i, 0});
            ranking.add(expected.back());
        }
        std::sort(expected.begin(), expected.end(),
                  [](const Ranked& a, const Ranked& b) { return a.before(b); });
        for (size_t at = 0; at < expected.size();) {
            const Ranked* found = ranking.at(at, Budget(clocks[at % 2], 1));
            if (!found) continue;  // it was cut off, and goes on
            ASSERT_EQ(found->index, expected[at].index) << at;
            at++;
        }
    }
}

TEST(CleanText, LeavesNothingInThatAReaderCannotTake) {
    const std::pair<std::string, std::string> cases[] = {
        {"", ""},
        {"plain text~", "plain text~"},
        {"caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80", "caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80"},
        {std::string("a\0b\r\n\x1b\x7f", 7), "a?b????"},
        {"\xc2\x85", "?"},                    // a control character of two bytes
        {"\xff\x80 \xc3(", "?? ?("},          // no UTF-8
        {"\xe2\x82", "??"},                   // cut in the middle
        {"\xc0\xaf \xe0\x80\xaf", "?? ???"},  // more bytes than needed
        {"\xed\xa0\x80", "???"},              // a surrogate
        {"\xf4\x90\x80\x80", "????"},         // beyond the last code point
        // a long text is cut between characters
        {std::string(255, 'a') + "\xc3\xa9", std::string(255, 'a')},
    };
    for (const auto& [from, to] : cases) {
        std::string out = "x=";
        append_clean(from, out);
        EXPECT_EQ(out, "x=" + to);
    }
}

TEST(Health, IsAsBadAsItsWorstItem) {
    Health health;
    health.configure(parse(R"({"flow_table":{"warn":50,"bad":60},"drops":{"warn":5,"bad":5}})"));
    const std::tuple<uint64_t, uint64_t, const char*, const char*, const char*> cases[] = {
        {49, 4, "ok", "ok", "ok"},
        {50, 4, "warn", "ok", "warn"},
        {59, 5, "warn", "bad", "bad"},
        {60, 0, "bad", "ok", "bad"},
    };
    for (const auto& [use, drops, table, lost, all] : cases) {
        const Json::Value brief = health.report({use, 1, drops, 0, 0}, false);
        EXPECT_EQ(brief["state"], all) << use;
        EXPECT_EQ(brief["items"]["flow_table"], table) << use;
        EXPECT_EQ(brief["items"]["drops"], lost) << use;
    }
    const Json::Value full = health.report({50, 1, 0, 0, 0}, true)["items"]["flow_table"];
    const char* text = R"({"state":"warn","value":50,"unit":"percent","warn":50,"bad":60})";
    EXPECT_EQ(full.toStyledString(), parse(text).toStyledString());
}

TEST(Health, RefusesAWrongConfigurationAsAWhole) {
    Health health;
    const Json::Value before = health.configuration();
    const std::pair<const char*, const char*> cases[] = {
        {R"("disk":{"warn":1})", "unknown member 'disk'"},
        {R"("memory":5)", "member 'memory' must be an object"},
        {R"("memory":{"worse":1})", "unknown member 'memory.worse', expecting 'warn' or 'bad'"},
        {R"("memory":{"warn":true})", "member 'memory.warn' must be a whole number from 1"},
        {R"("memory":{"warn":-1})", "member 'memory.warn' must be"},
        {R"("memory":{"warn":0})", "member 'memory.warn' must be"},
        {R"("memory":{"warn":1.5})", "member 'memory.warn' must be"},
        {R"("flow_table":{"bad":101})", "member 'flow_table.bad' must be a whole number from 1 to 100"},
        {R"("flow_table":{"warn":96})", "member 'flow_table.warn' (96) is above 'flow_table.bad' (95)"},
    };
    for (const auto& [wrong, text] : cases) {
        Json::Value conf = parse(std::string(R"({"drops":{"warn":7},)") + wrong + "}");
        EXPECT_THAT(test::error_of<Error>([&] { health.configure(conf); }), HasSubstr(text));
        EXPECT_EQ(health.configuration(), before) << wrong;
    }
    EXPECT_THROW(health.configure(Json::Value(Json::arrayValue)), Error);
    Json::Value changed = before;
    changed["drops"]["warn"] = Json::UInt64{7};
    health.configure(changed);
    EXPECT_EQ(health.configuration(), changed);
}

TEST(Health, CountsWhatCameInTheLastMinute) {
    LastMinute recent;
    const std::tuple<uint64_t, uint64_t, uint64_t> steps[] = {
        // when, total; sum of the minute
        {1000, 0, 0}, {2000, 10, 10}, {40000, 15, 15}, {75000, 15, 5}, {10000000, 16, 1}, {20000000, 16, 0}};
    for (const auto& [now_ms, total, sum] : steps) {
        recent.update(now_ms, total);
        EXPECT_EQ(recent.sum(), sum) << now_ms;
    }
}

TEST(Options, AWrongLineIsToldWithItsPlaceAndWhatIsAllowed) {
    const std::string range = "ring_bytes must be from 262144 to 1073741824, not ";
    const std::pair<const char*, std::string> CASES[] = {
        {"", ""},
        {"# all of it\n\n  ring_bytes = 262144  # small\r\nring_bytes=1073741824", ""},
        {"ring_bytes = 262143", "'f', line 1: " + range + "'262143'"},
        {"\nring_bytes = 1M", "'f', line 2: " + range + "'1M'"},
        {"ring_bytes = -1", "'f', line 1: " + range + "'-1'"},
        {"ring_bytes", "'f', line 1: expecting 'ring_bytes = VALUE', not 'ring_bytes'"},
        {"rings = 5",
         "'f', line 1: no option 'rings', expecting one of ring_bytes, sensor, spool, spool_bytes, workers"},
        {"sensor = # none", "'f', line 1: sensor must have from 1 to 255 bytes and no control characters"},
        {"spool = /a\tb", "'f', line 1: spool must have from 0 to 2048 bytes and no control characters"},
        {"spool =\nspool_bytes = 8388607",
         "'f', line 2: spool_bytes must be from 8388608 to 1099511627776, not '8388607'"},
        {"workers = 129", "'f', line 1: workers must be from 1 to 128, not '129'"},
    };
    for (const auto& [text, failure] : CASES)
        EXPECT_EQ(test::error_of<Error>([&, text = text] { Options::parse(text, "f"); }), failure) << text;
    const Options all =
        Options::parse("ring_bytes=300000\nsensor = gw 1\nspool=/s\nspool_bytes=9000000\nworkers=3", "f");
    EXPECT_EQ(std::tie(all.ring_bytes, all.sensor, all.spool, all.spool_bytes, all.workers),
              std::tuple(300000U, "gw 1", "/s", 9000000U, 3U));
}

TEST(Options, AFileMayBeAbsentUnlessItIsNamed) {
    const test::TempDir dir;
    EXPECT_EQ(Options::load().ring_bytes, Options().ring_bytes);
    EXPECT_NE(Options::load().sensor, "");
    const std::pair<std::string, const char*> unreadable[] = {
        {dir.file("absent"), ": No such file or directory"},
        {dir.path(), ": Is a directory"},
        {"/dev/zero", ": more than 65536 bytes"},
    };
    for (const auto& [file, why] : unreadable) {
        setenv("BRUMECP_ENGINE_CONF", file.c_str(), 1);
        EXPECT_EQ(test::error_of<Error>([] { Options::load(); }),
                  "can't read the engine's options in '" + file + "'" + why);
    }
    setenv("BRUMECP_ENGINE_CONF", dir.write("f", "ring_bytes = 270000").c_str(), 1);
    EXPECT_EQ(Options::load().ring_bytes, 270000U);
    unsetenv("BRUMECP_ENGINE_CONF");
}

}  // namespace
}  // namespace corvo::engine
