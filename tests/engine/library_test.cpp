// The library's entry points, called as the daemon calls them. Its methods are called through the daemon, in
// tests/process/flow_methods_test.py.
#include <brumecpd/engine_rpc.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>

#include "engine/pushed.h"
#include "server/corvo_server_loader_api.h"
#include "tools/captures/sample_flows.h"

namespace {

TEST(EngineApi, RefusesWhatComesOutOfOrderAndLeavesTheProcessInTheEnd) {
    void* const library = dlopen(ENGINE_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    corvo::server::EngineApi api;
    for (const auto& [name, store] : corvo::server::engine_symbols())
        store(api, dlsym(library, name));
    corvo::RpcCommandsTable methods;
    corvo::api::InitConfig config;
    config.cmds = &methods;
    test::Pushed tls(test::sample_flow("tls").frames);
    const auto failure = [](auto function, auto&&... args) {
        std::string err;
        function(args..., err);
        return err;
    };
    const auto activate = [&](uint32_t max_flows) {
        return failure(api.activate, corvo::api::ActivateConfig{max_flows, 1, false});
    };
    const auto push = [&](const std::string& dpaddr) {
        std::string err;
        api.push_pkts(dpaddr, tls.pkts, err, true);
        return err;
    };

    const char *uninitialised = "the engine isn't initialised", *inactive = "the data path isn't active";
    EXPECT_EQ(failure(api.deinit), uninitialised);
    EXPECT_EQ(activate(100), uninitialised);
    EXPECT_EQ(push(""), uninitialised);
    EXPECT_EQ(failure(api.init, config), "");
    EXPECT_EQ(failure(api.init, config), "the engine is already initialised");
    EXPECT_EQ(push(""), inactive);
    EXPECT_EQ(failure(api.deactivate), inactive);
    EXPECT_EQ(failure(api.intf_attach, std::string("lo")), inactive);
    EXPECT_EQ(activate(0), "max_flows is 0, expecting at least 1");
    EXPECT_EQ(activate(100), "");
    EXPECT_EQ(activate(100), "the data path is already active");
    EXPECT_EQ(failure(api.deactivate), "");
    EXPECT_EQ(activate(100), "");
    EXPECT_EQ(push("dp1"), "no data path 'dp1', expecting 'dp0', 'capture:NAME' or nothing");
    EXPECT_EQ(push("dp0"), "");
    EXPECT_EQ(push(""), "");
    EXPECT_EQ(tls.pkts[0].protocol, "TLS");
    EXPECT_THAT(tls.pkts[0].tph, testing::Contains("tls"));

    Json::Value version;
    std::vector<std::string> names;
    int fd = -1;
    for (const std::string& err : {failure(api.get_version, version), failure(api.get_dps, names),
                                   failure(api.intf_get, names), failure(api.get_evfd, fd)})
        EXPECT_EQ(err, "");
    EXPECT_TRUE(version["name"].isString() && version["version"].isString() && version["ndpi"].isString());
    EXPECT_THAT(names, testing::ElementsAre("dp0"));
    EXPECT_TRUE(fcntl(fd, F_GETFD) & FD_CLOEXEC);

    // A transfer is under way, its host name still being looked up.
    const corvo::api::ExporterConfig nowhere{"localhost", "/", 9, corvo::api::EXPORTER_HTTP};
    const std::string flows = "flows";
    EXPECT_EQ(failure(api.collect_set_exporter, nowhere), "");
    EXPECT_EQ(failure(api.collector_set_interval, flows, 100), "");
    EXPECT_EQ(failure(api.collector_enable, flows), "");
    poll(nullptr, 0, 110);
    EXPECT_EQ(failure(api.tick), "");
    EXPECT_EQ(failure(api.deinit), "");
    dlclose(library);
    EXPECT_EQ(dlopen(ENGINE_LIBRARY, RTLD_NOW | RTLD_NOLOAD), nullptr);
}

}  // namespace
