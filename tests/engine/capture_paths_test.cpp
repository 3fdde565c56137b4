#include "capture_paths.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "engine.h"
#include "engine/pushed.h"
#include "engine_error.h"
#include "flow_summary.h"
#include "support/error_of.h"
#include "tools/captures/sample_flows.h"

namespace corvo::engine {
namespace {

using test::error_of;
using test::Pushed;
using testing::HasSubstr;

uint64_t g_now_ms = 1;
uint64_t fake_clock() {
    return g_now_ms;
}

class CapturePathsTest : public testing::Test {
 protected:
    CapturePathsTest() { engine.activate({100, 1, false}); }

    void push(const std::string& dpaddr, const char* sample) {
        Pushed pushed(test::sample_flow(sample).frames);
        engine.push(dpaddr, pushed.pkts, false);
    }
    std::string count(const std::string& dpaddr) { return engine.coffee(dpaddr, "dp.ft.count", {}); }
    void tick(uint64_t later_ms) {
        std::string problem;
        g_now_ms += later_ms;
        for (int i = 0; i < 9; i++)
            engine.tick(problem), g_now_ms += 5;
    }

    Engine engine{{}, fake_clock};
};

TEST_F(CapturePathsTest, ShareNothingWithLiveTrafficNorWithEachOther) {
    push("", "dns");
    push("dp0", "ntp");
    push("capture:a", "dns");
    push("capture:b", "http");
    push("capture:b", "dns");
    engine.coffee("capture:a", "dp.ft.sui_ft_kill_all_flows", {});
    EXPECT_EQ(count("dp0"), "2");
    EXPECT_EQ(count("capture:a"), "0");
    EXPECT_EQ(count("capture:b"), "2");
    EXPECT_EQ(engine.sample("flows")["created"], 2u) << "collectors are of live traffic";
    EXPECT_EQ(engine.sample("protocols")["protocols"].size(), 2u);
    EXPECT_EQ(engine.sample("interfaces")["pushed"]["packets"],
              summarize(engine.path_of(""), false, true)["pushed"]["packets"]);
    engine.coffee("", "dp.ft.sui_ft_kill_all_flows", {});
    EXPECT_EQ(count("capture:b"), "2");
}

TEST_F(CapturePathsTest, EndWhenClosedUnusedOrDeactivated) {
    const auto gone = [this](const char* dpaddr) { return error_of<Error>([&] { engine.path_of(dpaddr); }); };
    const std::string text =
        "there is no data path 'capture:a': it comes with the first push to it, and ends when "
        "it is closed or unused for a minute";
    EXPECT_EQ(count("capture:a"), "0") << "a reset comes first";
    EXPECT_EQ(gone("capture:a"), text);
    push("capture:a", "dns");
    const uint64_t first = engine.path_of("capture:a").instance;
    tick(59000);
    EXPECT_EQ(count("capture:a"), "1") << "no flow ages, and this was a use";
    tick(59000);
    EXPECT_EQ(gone("capture:a"), "");
    tick(60000);
    EXPECT_EQ(gone("capture:a"), text);
    push("capture:a", "dns");
    EXPECT_NE(engine.path_of("capture:a").instance, first);
    engine.close("capture:a");
    EXPECT_EQ(gone("capture:a"), text);
    push("capture:a", "dns");
    engine.deactivate();
    EXPECT_EQ(gone("capture:a"), "the data path isn't active");
    engine.activate({100, 1, false});
    EXPECT_EQ(gone("capture:a"), text);
    EXPECT_EQ(error_of<Error>([&] { engine.close("dp0"); }),
              "data path 'dp0' can't be closed, only that of a capture");
}

TEST_F(CapturePathsTest, AreEightAtMostAndHaveProperNames) {
    for (int i = 0; i < 8; i++)
        push("capture:" + std::to_string(i), "dns");
    EXPECT_EQ(error_of<Error>([&] { push("capture:8", "dns"); }),
              "8 captures are being classified, the most that can be at once; try again when one has ended");
    engine.close("capture:3");
    push("capture:" + std::string(64, 'x'), "dns");
    for (const std::string& name :
         {std::string(), std::string(65, 'x'), std::string("a b"), std::string("\xc3\xa9")})
        EXPECT_THAT(error_of<Error>([&] { push("capture:" + name, "dns"); }),
                    HasSubstr("has no proper name, expecting 1 to 64 letters, digits, '.', '_' and '-'"))
            << name;
}

// Making a classifier takes longer than classifying a small file.
TEST(CapturePaths, FindASpareClassifierThatIsMadeInAQuietMoment) {
    Classifiers classifiers;
    CapturePaths paths(classifiers, fake_clock);
    Pushed dns(test::sample_flow("dns").frames);
    const test::Path peers{"8.0.0.5", "9.0.0.6", 6881, 16881};
    Pushed torrent(
        {test::udp_frame(peers, test::from_text("d1:ad2:id20:abcdefghij0123456789e1:q4:ping1:t2:aa1:y1:qe")),
         test::udp_frame(peers.reversed(),
                         test::from_text("d1:rd2:id20:mnopqrstuvwxyz123456e1:t2:aa1:y1:re"))});
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

}  // namespace
}  // namespace corvo::engine
