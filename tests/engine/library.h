#pragma once
// The engine library, loaded as the daemon loads it, with a table for its methods.

#include <brumecpd/engine_api.h>
#include <brumecpd/engine_rpc.h>
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "engine/pushed.h"
#include "support/client.h"

// Each function's own type, so that a call through the library is checked like a direct one.
#define CALL(name) reinterpret_cast<decltype(&corvo_api_cp_##name)>(symbol("corvo_api_cp_" #name))

namespace test {

class EngineLibrary : public testing::Test {
 protected:
    EngineLibrary() : m_handle(dlopen(ENGINE_LIBRARY, RTLD_NOW | RTLD_LOCAL)) {
        if (!m_handle) throw std::runtime_error(dlerror());
    }
    ~EngineLibrary() override {
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
    /** The result of one of the library's methods, or the error's text. */
    Json::Value ask(const std::string& method, const std::string& params = "{}") {
        Json::Value out;
        corvo::RpcCommand* command = m_table.lookup(method);
        if (!command) return "no method";
        return command->run(method, parse(params), out) == corvo::CMD_OK ? out["result"]
                                                                         : out["specific_err"];
    }
    std::vector<std::string> loaded_methods() {
        std::vector<std::string> out;
        m_table.query(out);
        return out;
    }
    std::string deinit() { return failure(CALL(deinit)); }
    std::string activate(uint32_t max_flows = 100) {
        return failure(CALL(activate), corvo::api::ActivateConfig{max_flows, 1, false});
    }
    std::string deactivate() { return failure(CALL(deactivate)); }
    std::string push(Pushed& pushed, const std::string& dpaddr = "", bool extended = true) {
        std::string err;
        CALL(push_pkts)(dpaddr, pushed.pkts, err, extended);
        return err;
    }
    /** The result, or the error behind "! ". */
    std::string coffee(const std::string& func, const std::vector<uint32_t>& args = {},
                       const std::string& dpaddr = "") {
        std::string result;
        std::string err;
        CALL(coffee)(dpaddr, func, args, result, err);
        return err.empty() ? result : "! " + err;
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

}  // namespace test
