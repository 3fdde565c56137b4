// An engine that binds to a symbol of each family that the daemon exports, and loads an RPC component of its
// own: it can be loaded only if the executable exports all of that.

#include <brumecpd/engine_api.h>
#include <pthread.h>
#include <sys/eventfd.h>

#include <memory>

#include "infra/corvo_lock.h"
#include "infra/corvo_malloc.h"
#include "infra/corvo_mt.h"
#include "infra/corvo_rpc_command.h"
#include "infra/corvo_shims.h"

namespace {

int g_evfd = -1;
corvo::RpcCommandsTable* g_cmds = nullptr;

/** Answers with one true member for each family whose functions worked. */
class HelloCommand : public corvo::RpcCommand {
 public:
    HelloCommand() : RpcCommand("hello") {}

 protected:
    int _run(const std::string&, const Json::Value&, Json::Value& res) override {
        Json::Value& result = res["result"];
        const int fd = eventfd(0, EFD_CLOEXEC);
        result["cv"] = cv_close(fd) == 0;
        void* memory = cvmalloc(16);
        result["malloc"] = memory != nullptr;
        cvfree(memory);
        pthread_mutex_t lock;
        corvo_lock_init(&lock);
        corvo_lock_lock(&lock);
        corvo_lock_unlock(&lock);
        result["lock"] = pthread_mutex_destroy(&lock) == 0;
        result["mt"] = corvo_mt_supported() == false;
        return corvo::CMD_OK;
    }
};

}  // namespace

void corvo_api_cp_init(const corvo::api::InitConfig& config, std::string& err) {
    if (!config.cmds) {
        err = "no command table";
        return;
    }
    auto component = std::make_unique<corvo::RpcComponent>("extender");
    component->add(new HelloCommand);
    g_cmds = config.cmds;
    g_cmds->load_component(component.release());
    g_evfd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
}

void corvo_api_cp_deinit(std::string&) {
    corvo::RpcComponent* component = g_cmds->lookup_component("extender");
    g_cmds->unload_component("extender");
    delete component;
    cv_close(g_evfd);
}

void corvo_api_cp_get_evfd(int& fd, std::string&) {
    fd = g_evfd;
}
