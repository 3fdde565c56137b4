#include "server/corvo_server_watched.h"

#include "infra/corvo_logger.h"
#include "infra/json/corvo_json.h"
#include "server/corvo_server.h"
#include "server/corvo_server_config.h"
#include "server/corvo_server_loader.h"
#include "server/watchdog/corvo_server_sig.h"

namespace corvo::server {
namespace {

const std::string COMP = "WD";

static_assert(EngineFacts::ACTIVATED == static_cast<int>(Engine::STATE_ACTIVE));

Engine* server_engine() {
    return Server::g_ptr ? Server::g_ptr->engine() : nullptr;
}

/** Keeps the version ready as text, because handlers must not query the library for it. */
void engine_state_cb(Engine::state_e state) {
    CORVO_LOG(DEBUG, COMP, "state changed to %u", static_cast<unsigned>(state));
    if (state <= Engine::STATE_LOADED) get_sig_handler()->set_engine_version("");
    if (state != Engine::STATE_ACTIVE) return;
    Json::Value version;
    server_engine()->get_version(version);
    get_sig_handler()->set_engine_version(json::write_line(version));
}

class GlobalServer final : public WatchedServer {
 public:
    void stop(int signum) const override { Server::on_signal(signum); }

    int uptime() const override {
        const Server* server = Server::g_ptr;
        return server && server->sched() ? server->get_uptime() : 0;
    }

    const char* log_file() const override {
        const Server* server = Server::g_ptr;
        return server ? server->options().log_file.c_str() : nullptr;
    }

    bool engine_facts(EngineFacts& facts) const override {
        Engine* engine = server_engine();
        if (!engine) return false;
        facts = {.mode = engine->get_mode_int().c_str(),
                 .path = engine->get_engine_path_int().c_str(),
                 .state = static_cast<int>(engine->state())};
        return true;
    }

    void follow_engine() const override {
        if (Engine* engine = server_engine()) engine->register_state_cb(engine_state_cb);
    }

    void unfollow_engine() const override {
        if (Engine* engine = server_engine()) engine->unregister_state_cb(engine_state_cb);
    }

    const char* default_config_file() const override { return get_default_conf_path(); }
};

}  // namespace

const WatchedServer& watched_server() {
    static constexpr GlobalServer server;
    return server;
}

}  // namespace corvo::server
