// Passes requests on to the engine's collectors and health monitoring, which live in the library: parameters
// are checked here, the result is returned unchanged.

#include <brumecpd/engine_api.h>
#include <json/value.h>

#include <algorithm>
#include <iterator>
#include <string>
#include <unordered_map>

#include "infra/corvo_rpc_command.h"
#include "server/corvo_server.h"
#include "server/corvo_server_loader.h"
#include "server/rpc/core/corvo_rpc_cmds.h"
#include "server/rpc/core/corvo_rpc_values.h"

namespace corvo {

namespace {

using server::Engine;
using server::Server;

constexpr uint64_t DEFAULT_INTERVAL_MS = 60000;

Engine& engine() {
    return *Server::g_ptr->engine();
}

/** Which further members of `socket` a kind of exporter needs; no others are read. */
struct ExporterKind {
    const char* word;
    api::exporter_type_e type;
    bool server_and_port;
    bool path;
};

constexpr ExporterKind EXPORTER_KINDS[] = {
    {"http", api::EXPORTER_HTTP, true, true},
    {"https", api::EXPORTER_HTTPS, true, true},
    {"kiln-cloud", api::EXPORTER_KILN_CLOUD, false, false},
    {"file", api::EXPORTER_FILE, false, true},
    {"none", api::EXPORTER_NONE, false, false},
};

const ExporterKind& exporter_kind(const std::string& word) {
    return *std::find_if(std::begin(EXPORTER_KINDS), std::end(EXPORTER_KINDS),
                         [&](const ExporterKind& kind) { return word == kind.word; });
}

}  // namespace

class RpcCmdCollect : public RpcCommand {
 public:
    RpcCmdCollect() : RpcCommand("collect") {}

 protected:
    int _run(const std::string&, const Json::Value& params, Json::Value& res) override {
        using Branch = void (*)(RpcCmdCollect & self, const Json::Value& params, Json::Value& res);
        static const std::unordered_map<std::string, Branch> BRANCHES = {
            {"enable",
             [](RpcCmdCollect& self, const Json::Value& params, Json::Value& res) {
                 engine().collector_enable(self.parse_string(params, "component", res));
             }},
            {"disable",
             [](RpcCmdCollect& self, const Json::Value& params, Json::Value& res) {
                 engine().collector_disable(self.parse_string(params, "component", res));
             }},
            {"set_interval",
             [](RpcCmdCollect& self, const Json::Value& params, Json::Value& res) {
                 // The function takes 64 bits, but intervals have 32.
                 const auto interval_ms = static_cast<uint32_t>(
                     optional_param<uint64_t>(self, params, "interval", DEFAULT_INTERVAL_MS, res));
                 engine().collector_set_interval(self.parse_string(params, "component", res), interval_ms);
             }},
            {"ls",
             [](RpcCmdCollect& self, const Json::Value&, Json::Value& res) { self.handle_collect_ls(res); }},
            {"set_exporter", [](RpcCmdCollect& self, const Json::Value& params,
                                Json::Value& res) { self.handle_collect_set_exporter(params, res); }},
            {"show",
             [](RpcCmdCollect& self, const Json::Value& params, Json::Value& res) {
                 engine().collector_get_sample(self.parse_string(params, "component", res), res["result"]);
             }},
        };
        guarded(res, [&] {
            const std::string cmd = parse_choice(
                params, "cmd", {"enable", "disable", "set_interval", "ls", "set_exporter", "show"}, res);
            res["result"] = Json::objectValue;
            BRANCHES.at(cmd)(*this, params, res);
        });
        return CMD_OK;
    }

 private:
    void handle_collect_ls(Json::Value& res) {
        Json::Value collectors;
        engine().get_collectors(collectors);
        Json::Value& out = res["result"]["collect"];
        for (const Json::Value& collectable : optional_field(collectors, "collectables"))
            out["collectables"].append(collectable);
        out["exporter"] = optional_field(collectors, "exporter");
    }

    void handle_collect_set_exporter(const Json::Value& params, Json::Value& res) {
        check_field_type(params, "socket", TYPE_OBJECT, res);
        const Json::Value& socket = params["socket"];
        const ExporterKind& kind =
            exporter_kind(parse_choice(socket, "type", {"http", "https", "kiln-cloud", "file", "none"}, res));
        api::ExporterConfig config;
        if (kind.server_and_port) {
            config.server = parse_string(socket, "server", res);
            config.port = required_param<uint16_t>(*this, socket, "port", res);
        }
        if (kind.path) config.path = parse_string(socket, "path", res);
        config.type = kind.type;
        engine().collect_set_exporter(config);
    }
};

class RpcCmdHealth : public RpcCommand {
 public:
    RpcCmdHealth() : RpcCommand("health") {}

 protected:
    int _run(const std::string&, const Json::Value& params, Json::Value& res) override {
        guarded(res, [&] {
            const std::string cmd = parse_choice(params, "cmd", {"show", "configure", "get_config"}, res);
            if (cmd == "show") {
                const auto verbose = optional_param<bool>(*this, params, "verbose", false, res);
                engine().health_get(res["result"], verbose);
            } else if (cmd == "configure") {
                handle_configure(params, res);
            } else {
                engine().health_conf_get(res["result"]);
            }
        });
        return CMD_OK;
    }

 private:
    void handle_configure(const Json::Value& params, Json::Value& res) {
        check_field_type(params, "json", TYPE_OBJECT, res);
        engine().health_conf_set(params["json"]);
    }
};

void add_collect_commands(RpcComponent& component) {
    component.add(new RpcCmdCollect());
    component.add(new RpcCmdHealth());
}

}  // namespace corvo
