// An engine that hides a method of the daemon, and leaves methods, a descriptor and a thread behind.

#include <brumecpd/engine_api.h>
#include <brumecpd/engine_rpc.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

extern int g_evfd;

namespace {

struct Left : corvo::RpcCommand {
    using RpcCommand::RpcCommand;
    int _run(const std::string&, const Json::Value&, Json::Value&) override { return corvo::CMD_NO_RESULTS; }
};

}  // namespace

void corvo_api_cp_init(const corvo::api::InitConfig& config, std::string&) {
    auto* component = new corvo::RpcComponent("");
    component->add(new Left("left"));
    component->add(new Left("ping"));
    config.cmds->load_component(component);
    g_evfd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    pthread_t thread;
    pthread_create(
        &thread, nullptr, [](void*) -> void* { return reinterpret_cast<void*>(intptr_t{pause()}); }, nullptr);
}

void corvo_api_cp_deinit(std::string&) {}
