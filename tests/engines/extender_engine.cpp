// An engine that brings a method of its own, written against the daemon's headers.

#include <brumecpd/engine_api.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <memory>

#include "infra/corvo_rpc_command.h"

namespace {

int g_evfd = -1;
corvo::RpcCommandsTable* g_cmds = nullptr;

class HelloCommand : public corvo::RpcCommand {
 public:
    HelloCommand() : RpcCommand("hello") {}

 protected:
    int _run(const std::string&, const Json::Value&, Json::Value& res) override {
        res["result"]["hello"] = true;
        return corvo::CMD_OK;
    }
};

}  // namespace

void corvo_api_cp_init(const corvo::api::InitConfig& config, std::string&) {
    auto component = std::make_unique<corvo::RpcComponent>("extender");
    component->add(new HelloCommand);
    g_cmds = config.cmds;
    g_cmds->load_component(component.release());
    g_evfd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
}

void corvo_api_cp_deinit(std::string&) {
    const std::unique_ptr<corvo::RpcComponent> component(g_cmds->lookup_component("extender"));
    g_cmds->unload_component("extender");
    close(g_evfd);
}

void corvo_api_cp_get_evfd(int& fd, std::string&) {
    fd = g_evfd;
}
