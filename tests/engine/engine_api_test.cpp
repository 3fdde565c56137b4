#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>

#include "engine/library.h"
#include "tools/captures/sample_flows.h"

namespace {

using test::Pushed;
using testing::ElementsAre;
using testing::HasSubstr;

class EngineApi : public test::EngineLibrary {};

TEST_F(EngineApi, RefusesWhatComesOutOfOrder) {
    Pushed pushed(test::sample_flow("dns").frames);
    const char* uninitialised = "the engine isn't initialised";
    EXPECT_EQ(deinit(), uninitialised);
    EXPECT_EQ(activate(), uninitialised);
    EXPECT_EQ(push(pushed), uninitialised);
    EXPECT_EQ(init(), "");
    EXPECT_EQ(init(), "the engine is already initialised");
    EXPECT_EQ(push(pushed), "the data path isn't active");
    EXPECT_EQ(deactivate(), "the data path isn't active");
    EXPECT_EQ(activate(0), "max_flows is 0, expecting at least 1");
    EXPECT_EQ(activate(), "");
    EXPECT_EQ(activate(), "the data path is already active");
    EXPECT_EQ(push(pushed), "");
    EXPECT_EQ(push(pushed, "dp0"), "");
    EXPECT_EQ(push(pushed, "dp1"), "no data path 'dp1', expecting 'dp0', 'capture:NAME' or nothing");
    EXPECT_EQ(deactivate(), "");
    EXPECT_EQ(activate(), "");
    EXPECT_EQ(coffee("dp.ft.count"), "0");
    EXPECT_EQ(deinit(), "");
}

TEST_F(EngineApi, RunsItsInternalFunctionsByName) {
    init();
    EXPECT_EQ(coffee("dp.veld.sui_lut_remove_all_links"), "all links removed");
    EXPECT_EQ(coffee("dp.ft.sui_ft_kill_all_flows"), "0 flows removed");
    EXPECT_EQ(coffee("dp.ft.dump"), "");
    activate();
    Pushed pushed(test::sample_frames());
    push(pushed);
    EXPECT_EQ(coffee("dp.ft.count"), std::to_string(test::sample_flows().size()));
    std::string two = coffee("dp.ft.dump", {2});
    EXPECT_EQ(std::count(two.begin(), two.end(), '\n'), 2);
    EXPECT_EQ(coffee("dp.ft.dump", {10001}), "! the limit of dp.ft.dump is 10001, expecting at most 10000");
    EXPECT_EQ(coffee("dp.ft.dump", {1, 2}), "! dp.ft.dump takes at most 1 arguments, got 2");
    EXPECT_EQ(coffee("dp.ft.nil"), "! no function 'dp.ft.nil', try 'help'");
    EXPECT_EQ(coffee("help", {}, "x"), "! no data path 'x', expecting 'dp0', 'capture:NAME' or nothing");
    EXPECT_THAT(coffee("help"), HasSubstr("dp.ft.count"));
    EXPECT_EQ(coffee("dp.ft.sui_ft_kill_all_flows"),
              std::to_string(test::sample_flows().size()) + " flows removed");
}

TEST_F(EngineApi, TellsWhatItIs) {
    init();
    std::string err;
    Json::Value version;
    CALL(get_version)(version, err);
    EXPECT_TRUE(version["name"].isString() && version["version"].isString() && version["ndpi"].isString());
    std::vector<std::string> list;
    CALL(get_dps)(list, err);
    CALL(intf_get)(list, err);
    EXPECT_THAT(list, ElementsAre("dp0"));
    int fd = -1;
    CALL(get_evfd)(fd, err);
    EXPECT_TRUE(fcntl(fd, F_GETFD) & FD_CLOEXEC);
    EXPECT_EQ(err, "");
    EXPECT_EQ(failure(CALL(intf_attach), std::string("lo")), "the data path isn't active");
}

TEST_F(EngineApi, LeavesTheProcessWhenItIsClosed) {
    init();
    activate();
    Pushed pushed(test::sample_flow("tls").frames);
    push(pushed);
    EXPECT_EQ(pushed.pkts[0].protocol, "TLS");
    std::string err;
    // With a transfer of a name that is being looked up under way.
    CALL(collect_set_exporter)({"localhost", "/", 9, corvo::api::EXPORTER_HTTP}, err);
    CALL(collector_set_interval)("flows", 100, err);
    CALL(collector_enable)("flows", err);
    pollfd nothing{-1, 0, 0};
    poll(&nothing, 1, 110);
    CALL(tick)(err);
    EXPECT_EQ(err, "");
    deinit();
    close_library();
    void* still_there = dlopen(ENGINE_LIBRARY, RTLD_NOW | RTLD_NOLOAD);
    EXPECT_EQ(still_there, nullptr);
}

}  // namespace
