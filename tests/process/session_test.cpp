// Whole sessions with the real daemon, our engine and engines that bind back into the daemon.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "support/daemon.h"
#include "support/load_params.h"
#include "tools/captures/capture_files.h"
#include "tools/captures/sample_flows.h"

namespace test {
namespace {

using ::testing::Contains;
using ::testing::UnorderedElementsAreArray;

const std::vector<std::string> METHODS = {"ping",      "echo",   "shutdown", "cmds",         "status",
                                          "load",      "unload", "activate", "deactivate",   "mt",
                                          "push_pcap", "coffee", "attach",   "detach",       "log",
                                          "collect",   "health", "events",   "notifications"};

std::vector<std::string> strings(const Json::Value& array) {
    std::vector<std::string> out;
    for (const Json::Value& item : array)
        out.push_back(item.asString());
    return out;
}

Json::Value object(const char* text) {
    return parse(text);
}

TEST(Session, ACaptureIsClassifiedByOurEngineOverBothTransports) {
    for (bool tcp : {false, true}) {
        SCOPED_TRACE(tcp ? "TCP" : "Unix");
        Daemon daemon({.engine_dir = OUR_ENGINE_DIR, .tcp = tcp});
        EXPECT_THAT(strings(daemon.result("cmds")), UnorderedElementsAreArray(METHODS));
        EXPECT_EQ(daemon.result("status")["state"], "not loaded");
        EXPECT_EQ(daemon.result("load", load_params()), object("{}"));
        EXPECT_EQ(daemon.result("activate", object(R"({"resources":{"max_flows":1000}})")), object("{}"));
        EXPECT_EQ(daemon.result("status")["state"], "activated");
        EXPECT_FALSE(daemon.result("status")["version"].isNull());

        Json::Value params = object(R"({"type":"filename","reset":true})");
        const std::string capture = daemon.dir().file("sample.pcap");
        write_pcap(capture, sample_frames());
        params["filename"] = capture;
        const Json::Value counts = daemon.result("push_pcap", params);
        EXPECT_GE(counts.size(), 12U) << counts;
        EXPECT_GT(counts["DNS"].asInt(), 0) << counts;
        EXPECT_EQ(daemon.result("push_pcap", params), counts)
            << "a reset makes the second run like the first";

        EXPECT_EQ(daemon.result("shutdown"), object("{}"));
        EXPECT_EQ(daemon.wait_exit(), 0);
    }
}

TEST(Session, AnEngineBindsToTheDaemonAndBringsAMethodOfItsOwn) {
    Daemon daemon;
    Json::Value params;
    params["dir"] = daemon.dir().path();
    for (const auto& [dir, method] :
         {std::pair{EXTENDER_ENGINE_DIR, "extender.hello"}, {CLOSED_ENGINE_DIR, "closed.all"}}) {
        daemon.result("load", load_params(dir));
        EXPECT_THAT(strings(daemon.result("cmds")), Contains(method));
        const Json::Value answer = daemon.result(method, params);
        EXPECT_FALSE(answer.empty());
        EXPECT_TRUE(std::all_of(answer.begin(), answer.end(), [](const Json::Value& v) { return v == true; }))
            << answer;
        daemon.result("unload");
        EXPECT_THAT(strings(daemon.result("cmds")), UnorderedElementsAreArray(METHODS));
    }
}

TEST(Session, AnEngineCanBeReplacedByAnotherWithoutARestart) {
    Daemon daemon({.engine_dir = OUR_ENGINE_DIR});
    const char* const activate = R"({"resources":{"max_flows":10}})";
    for (int round = 0; round < 3; ++round) {
        daemon.result("load", load_params());
        daemon.result("activate", object(activate));
        const Json::Value ours = daemon.result("status")["version"];
        daemon.result("deactivate");
        daemon.result("unload");
        daemon.result("load", load_params(SCRIPTED_ENGINE_DIR));
        daemon.result("activate", object(activate));
        EXPECT_NE(daemon.result("status")["version"], ours);
        daemon.result("deactivate");
        daemon.result("unload");
    }
    const std::string maps = read_file("/proc/" + std::to_string(daemon.pid()) + "/maps");
    EXPECT_EQ(maps.find("libcvcp_u.so"), std::string::npos) << "a closed engine is still mapped";
}

}  // namespace
}  // namespace test
