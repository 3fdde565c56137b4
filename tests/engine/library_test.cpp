// The library's entry points, called as the daemon calls them. Its methods are called through the daemon, in
// tests/process/flow_methods_test.py.
#include <brumecpd/engine_api.h>
#include <brumecpd/engine_rpc.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <stdexcept>

#include "engine/pushed.h"
#include "tools/captures/sample_flows.h"

// Each function's own type, so that a call through the library is checked like a direct one.
#define CALL(name) reinterpret_cast<decltype(&corvo_api_cp_##name)>(symbol("corvo_api_cp_" #name))

namespace {

using test::Pushed;

class EngineApi : public testing::Test {
 protected:
    EngineApi() : m_handle(dlopen(ENGINE_LIBRARY, RTLD_NOW | RTLD_LOCAL)) {
        if (!m_handle) throw std::runtime_error(dlerror());
    }
    ~EngineApi() override {
        if (m_handle) deinit();
        close_library();
    }
    void close_library() {
        if (m_handle) dlclose(m_handle);
        m_handle = nullptr;
    }
    void* symbol(const char* name) {
        void* found = dlsym(m_handle, name);
        if (!found) throw std::runtime_error(dlerror());
        return found;
    }

    std::string init() {
        corvo::api::InitConfig config;
        config.cmds = &m_table;
        return failure(CALL(init), config);
    }
    std::string deinit() { return failure(CALL(deinit)); }
    std::string activate(uint32_t max_flows = 100) {
        return failure(CALL(activate), corvo::api::ActivateConfig{max_flows, 1, false});
    }
    std::string deactivate() { return failure(CALL(deactivate)); }
    std::string push(Pushed& pushed, const std::string& dpaddr = "") {
        std::string err;
        CALL(push_pkts)(dpaddr, pushed.pkts, err, true);
        return err;
    }
    template <typename Function, typename... Args>
    static std::string failure(Function function, const Args&... args) {
        std::string err;
        function(args..., err);
        return err;
    }

 private:
    corvo::RpcCommandsTable m_table;
    void* m_handle;
};

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
    EXPECT_EQ(deinit(), "");
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
    EXPECT_THAT(list, testing::ElementsAre("dp0"));
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
    // A transfer is under way, its host name still being looked up.
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
