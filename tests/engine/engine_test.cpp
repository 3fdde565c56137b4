// The whole engine: collectors, captures, and real traffic in a network namespace of its own.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/if_packet.h>
#include <poll.h>

#include <cstring>
#include <fstream>
#include <map>

#include "capture_paths.h"
#include "engine.h"
#include "engine/pushed.h"
#include "engine/receivers.h"
#include "engine_error.h"
#include "samples.h"
#include "support/client.h"
#include "support/error_of.h"
#include "support/net_namespace.h"
#include "support/temp_dir.h"
#include "tools/captures/sample_flows.h"

namespace corvo::engine {
namespace {

using test::error_of;
using test::fake_clock;
using test::g_now_ms;
using test::Pushed;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class EngineTest : public testing::Test {
 protected:
    EngineTest() { test::take_notices(); }

    void activate(uint32_t max_flows = 100) { engine.activate({max_flows, 1, false}); }
    void push(const char* sample, const std::string& dpaddr = "") {
        Pushed pushed(test::sample_flow(sample).frames);
        engine.push(dpaddr, pushed.pkts, false);
    }
    std::string count(const std::string& dpaddr) { return engine.coffee(dpaddr, "dp.ft.count", {}); }
    int tick(uint64_t later_ms = 0) {
        g_now_ms += later_ms;
        std::string problem;
        int delay_ms = engine.tick(problem);
        EXPECT_EQ(problem, "");
        return delay_ms;
    }

    Engine engine{{}, {}, fake_clock};
};
using CollectorsTest = EngineTest;
using Captures = EngineTest;

TEST_F(CollectorsTest, CountEachPacketOnceAsOpenUntilItsFlowIsDecidedAndThenForever) {
    activate();
    std::map<std::string, Traffic> expected;
    std::map<std::string, Counts> before;
    Json::UInt64 pushed = 0;
    for (const test::SampleFlow& flow : test::sample_flows()) {
        expected[flow.protocol] += {0, 0, 1};
        for (const test::Bytes& frame : flow.frames) {
            expected[flow.protocol] += {1, frame.size(), 0};
            Pushed one({frame});
            engine.push("", one.pkts, false);
            uint64_t counted = 0;
            const auto counts = engine.path_of("").data.counts_by_protocol();
            for (const auto& [name, now] : counts) {
                const Traffic &settled = now.settled, &was = before[name].settled;
                EXPECT_TRUE(settled.packets >= was.packets && settled.bytes >= was.bytes &&
                            settled.flows >= was.flows)
                    << name;
                counted += settled.packets + now.open.packets;
            }
            EXPECT_EQ(counted, ++pushed) << flow.name;
            before = counts;
        }
    }
    tick(301000);  // the flows go, what they brought stays
    Json::Value protocols;
    for (const auto& [name, traffic] : expected)
        protocols[name] = traffic_json(traffic);
    EXPECT_EQ(engine.sample("protocols")["protocols"], protocols);
    EXPECT_EQ(engine.sample("protocols")["open"], Json::Value(Json::objectValue));
    EXPECT_EQ(engine.sample("interfaces")["pushed"]["packets"], pushed);
    const Json::UInt64 flows = test::sample_flows().size();
    const std::pair<const char*, Json::UInt64> counts[] = {
        {"created", flows}, {"aged", flows}, {"active", 0}, {"max", 100}, {"unclassified", 0}};
    for (const auto& [member, count] : counts)
        EXPECT_EQ(engine.sample("flows")[member], count) << member;
}

TEST_F(CollectorsTest, ExportsEachEnabledCollectorAtItsInterval) {
    const test::TempDir dir;
    const auto exported = [&](uint64_t later_ms) {
        tick(later_ms);
        const std::string lines = test::read_file(dir.file("out"));
        return std::count(lines.begin(), lines.end(), '\n');
    };
    engine.set_exporter({"", dir.file("out"), 0, api::EXPORTER_FILE});
    engine.set_collector_interval("flows", 300);
    engine.set_collector_interval("protocols", 700);
    engine.enable_collector("flows");
    engine.enable_collector("protocols");
    EXPECT_EQ(tick(), 300);
    EXPECT_EQ(exported(299), 0);
    EXPECT_EQ(exported(1), 1);
    EXPECT_THAT(test::read_file(dir.file("out")), HasSubstr("\"collector\":\"flows\""));
    EXPECT_EQ(exported(1), 1);
    EXPECT_EQ(exported(399), 3);
    EXPECT_EQ(exported(10000), 5) << "late: one sample, not many";
    engine.disable_collector("flows");
    EXPECT_EQ(exported(500), 5);
    EXPECT_EQ(engine.collectors()["exporter"]["sent"], 5u);
}

TEST_F(CollectorsTest, ListsItsCollectorsAndRefusesOthers) {
    engine.enable_collector("interfaces");
    Json::Value list = engine.collectors()["collectables"];
    ASSERT_EQ(list.size(), 4u);
    EXPECT_EQ(list[2].toStyledString(),
              test::parse(R"({"enabled":true,"interval":60000,"name":"interfaces"})").toStyledString());
    void (*const asks[])(Engine&) = {
        [](Engine& e) { e.enable_collector("x"); }, [](Engine& e) { e.disable_collector("x"); },
        [](Engine& e) { e.sample("x"); }, [](Engine& e) { e.set_collector_interval("x", 1000); }};
    for (const auto ask : asks)
        EXPECT_EQ(
            error_of<Error>([&] { ask(engine); }),
            "there is no collector 'x', expecting one of 'flows', 'protocols', 'interfaces', 'records'");
    for (uint64_t interval : {0ul, 99ul, 86400001ul})
        EXPECT_EQ(error_of<Error>([&] { engine.set_collector_interval("flows", interval); }),
                  "the interval is " + std::to_string(interval) + " ms, expecting 100 to 86400000");
}

TEST_F(CollectorsTest, TellsOfAFullFlowTableOnceUntilThereIsRoomAgain) {
    activate(1);
    const auto notices_after = [this](const std::vector<const char*>& samples) {
        for (const char* sample : samples)
            push(sample);
        tick(1000);
        return test::take_notices();
    };
    const std::string full = "engine flow_table.full 2: all 1 flows are in use, ";
    EXPECT_THAT(notices_after({"dns"}), IsEmpty());
    EXPECT_THAT(notices_after({"ntp"}), ElementsAre(full + "the longest idle make room"));
    EXPECT_THAT(notices_after({"ntp", "dns"}), ElementsAre(full + "new ones are refused"));
    EXPECT_THAT(notices_after({"ntp", "dns"}), IsEmpty());
    const Json::Value health = engine.health(true)["items"];
    EXPECT_EQ(health["flow_table"]["state"], "bad");
    EXPECT_EQ(health["drops"]["value"], Json::UInt64{2 * test::sample_flow("dns").frames.size()});
    EXPECT_EQ(health["evictions"]["value"], 1u);
    EXPECT_GT(health["memory"]["value"].asUInt64(), 1u << 20);
    EXPECT_EQ(engine.sample("flows")["errors"]["table_full"], health["drops"]["value"]);
    EXPECT_EQ(engine.sample("flows")["evicted"], 1u);
    tick(60000);
    EXPECT_THAT(notices_after({}), IsEmpty());
    EXPECT_EQ(engine.health(false)["items"]["flow_table"], "ok");
    EXPECT_THAT(notices_after({"dns", "ntp"}), ElementsAre(full + "new ones are refused"));
}

// tests/process/flow_methods_test.py closes them.
TEST_F(Captures, EndWhenUnusedOrDeactivated) {
    activate();
    const auto gone = [this] { return error_of<Error>([&] { engine.path_of("capture:a"); }); };
    const auto idle = [this](uint64_t later_ms) {
        tick(later_ms);
        for (int i = 0; i < 9; i++)
            tick(5);
    };
    const std::string text =
        "there is no data path 'capture:a': it comes with the first push to it, and ends when "
        "it is closed or unused for a minute";
    EXPECT_EQ(count("capture:a"), "0") << "a reset comes first";
    EXPECT_EQ(gone(), text);
    push("dns", "capture:a");
    const uint64_t first = engine.path_of("capture:a").instance;
    idle(59000);
    EXPECT_EQ(count("capture:a"), "1") << "no flow ages, and this was a use";
    idle(59000);
    EXPECT_EQ(gone(), "");
    idle(60000);
    EXPECT_EQ(gone(), text);
    push("dns", "capture:a");
    EXPECT_NE(engine.path_of("capture:a").instance, first);
    engine.deactivate();
    activate();
    EXPECT_EQ(gone(), text);
}

TEST_F(Captures, AreEightAtMostAndHaveProperNames) {
    activate();
    for (int i = 0; i < 8; i++)
        push("dns", "capture:" + std::to_string(i));
    EXPECT_EQ(error_of<Error>([&] { push("dns", "capture:8"); }),
              "8 captures are being classified, the most that can be at once; try again when one has ended");
    engine.close("capture:3");
    push("dns", "capture:" + std::string(64, 'x'));
    for (const std::string& name :
         {std::string(), std::string(65, 'x'), std::string("a b"), std::string("\xc3\xa9")})
        EXPECT_THAT(error_of<Error>([&] { push("dns", "capture:" + name); }),
                    HasSubstr("has no proper name, expecting 1 to 64 letters, digits, '.', '_' and '-'"))
            << name;
}

// Making a classifier takes longer than classifying a small file.
TEST(CapturePaths, FindASpareClassifierThatIsMadeInAQuietMoment) {
    Classifiers classifiers;
    CapturePaths paths(classifiers, fake_clock);
    Pushed dns(test::sample_flow("dns").frames);
    Pushed torrent(test::torrent_frames());
    NamedPath& first = paths.open("capture:a", 1);
    first.data.push(dns.pkts, false);
    paths.close("capture:a");
    EXPECT_TRUE(classifiers.has_spare()) << "nothing was learned, it's as good as new";
    NamedPath& second = paths.open("capture:b", 2);
    second.data.push(torrent.pkts, false);
    EXPECT_EQ(torrent.pkts[0].protocol, "BitTorrent");
    EXPECT_EQ(second.data.counts_by_protocol().size(), 1u);
    paths.close("capture:b");
    paths.tick(g_now_ms);
    EXPECT_FALSE(classifiers.has_spare()) << "it remembers peers";
    paths.tick(g_now_ms += 999);
    EXPECT_FALSE(classifiers.has_spare()) << "somebody may be at it";
    paths.tick(g_now_ms += 1);
    EXPECT_TRUE(classifiers.has_spare());
}

/** The payload of the sample's first packet. */
test::Bytes dns_query() {
    const test::Bytes& frame = test::sample_flow("dns").frames[0];
    return {frame.begin() + 14 + 20 + 8, frame.end()};
}

class LiveTest : public EngineTest {
 protected:
    void SetUp() override {
        if (!net.entered()) GTEST_SKIP() << "no network namespace: " << strerror(errno);
        activate();
    }
    /** Frames are reported together, a few milliseconds after they arrive. */
    bool readable(int timeout_ms = 0) const {
        pollfd waiting{engine.event_fd(), POLLIN, 0};
        return poll(&waiting, 1, timeout_ms) == 1;
    }
    bool has_frames() const { return readable(100); }
    Json::Value loopback() { return engine.sample("interfaces")["interfaces"][0]; }

    test::NetNamespace net;
};

TEST_F(LiveTest, SeesEachPacketOnceAndABoundedNumberPerTick) {
    engine.attach("lo");
    EXPECT_FALSE(readable());
    const test::Bytes query = dns_query();
    unsigned sent = 0;
    for (const unsigned burst : {6000U, 1500U, 1U}) {  // after many it rests, and must notice the next
        net.send_datagrams(53, query, burst);
        sent += burst;
        tick();
        EXPECT_LE(loopback()["packets"].asUInt64(), sent - burst + 2048 + 64);
        for (int ticks = 0; has_frames() && ticks < 1000; ticks++)
            tick();
        EXPECT_EQ(loopback()["packets"].asUInt64() + loopback()["drops"].asUInt64(), sent);
        EXPECT_FALSE(has_frames());
    }
    EXPECT_EQ(loopback()["bytes"].asUInt64(), loopback()["packets"].asUInt64() * (query.size() + 42));
    EXPECT_THAT(engine.coffee("", "dp.ft.dump", {}), HasSubstr("ns 0 udp 127.0.0.1:"));
    net.send_datagrams(53, query, 3000);
    tick();
    tick();
    engine.deactivate();
    EXPECT_FALSE(has_frames()) << "a rest that nobody ends keeps the daemon busy";
}

TEST_F(LiveTest, CountsWhatFoundNoRoomInTheKernel) {
    engine.attach("lo");
    net.send_datagrams(9, test::Bytes(60000, 'x'), 300);
    g_now_ms += 1000;
    tick();
    uint64_t drops = loopback()["drops"].asUInt64();
    EXPECT_GT(drops, 0u);
    EXPECT_EQ(engine.health(true)["items"]["drops"]["value"], Json::UInt64{drops});
    engine.detach("lo");
    EXPECT_EQ(engine.health(true)["items"]["drops"]["value"], Json::UInt64{drops});
}

TEST_F(LiveTest, RefusesWhatCannotBeAttachedOrDetached) {
    const auto attach = [this](const std::string& name) {
        return error_of<Error>([&] { engine.attach(name); });
    };
    EXPECT_EQ(attach("nil0"), "there is no interface 'nil0'");
    EXPECT_EQ(attach(""), "there is no interface ''");
    EXPECT_EQ(attach(std::string("lo\0x", 4)).substr(0, 24), "there is no interface 'l");
    EXPECT_EQ(error_of<Error>([&] { engine.detach("lo"); }), "interface 'lo' isn't attached");
    EXPECT_EQ(attach("lo"), "");
    EXPECT_EQ(attach("lo"), "interface 'lo' is already attached");
    EXPECT_THAT(engine.attached(), ElementsAre("lo"));
    engine.deactivate();
    EXPECT_THAT(engine.attached(), IsEmpty());
    net.send_datagrams(53, dns_query());
    EXPECT_FALSE(has_frames());
}

TEST_F(LiveTest, MakesDoWithASmallerRingWhereMemoryIsShort) {
    const OwnedFd socket(::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0));
    size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    const test::ShortOf memory(RLIMIT_AS, pages * static_cast<size_t>(getpagesize()) + (5UL << 19));
    const PacketRing ring(socket.get(), 4UL << 20);
    EXPECT_EQ(ring.bytes(), 2UL << 20);
}

}  // namespace
}  // namespace corvo::engine
