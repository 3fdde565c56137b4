// Methods that need only the server, not an engine.

#include <memory>
#include <vector>

#include "infra/corvo_logger.h"
#include "server/corvo_server.h"
#include "server/rpc/core/corvo_rpc_cmds.h"
#include "server/rpc/core/corvo_rpc_values.h"
#include "server/watchdog/corvo_signal_report.h"
#include "utils/clock.h"

namespace corvo {

namespace {

using server::Server;

const std::string COMP = "rpc";
const std::string ECHO_COMP = "echo";

}  // namespace

/** Returns the seconds of the monotonic clock: a sign of life, not the time of day. */
class RpcCmdPing : public RpcCommand {
 public:
    RpcCmdPing() : RpcCommand("ping") {}

 protected:
    int _run(const std::string&, const Json::Value&, Json::Value& res) override {
        res["result"]["ts"] = static_cast<Json::UInt64>(monotonic_sec());
        return CMD_OK;
    }
};

/** Writes a client's `message` into the log. Unguarded: a bad field is CMD_BAD_PARAMS. */
class RpcCmdEcho : public RpcCommand {
 public:
    RpcCmdEcho() : RpcCommand("echo") {}

 protected:
    int _run(const std::string&, const Json::Value& params, Json::Value& res) override {
        const auto message = required_param<std::string>(*this, params, "message", res);
        CORVO_LOG(INFO, ECHO_COMP, "%s", message.c_str());
        res["result"] = Json::objectValue;
        return CMD_OK;
    }
};

/** The server's loop ends once the reply has been sent. */
class RpcCmdShutdown : public RpcCommand {
 public:
    RpcCmdShutdown() : RpcCommand("shutdown") {}

 protected:
    int _run(const std::string&, const Json::Value&, Json::Value& res) override {
        CORVO_LOG(INFO, COMP, "RPC request for shutdown");
        Server::g_ptr->stop(Server::EXIT_CAUSE_SHUTDOWN);
        res["result"] = Json::objectValue;
        return CMD_OK;
    }
};

/** The keys of the whole table, including those of an engine's components. */
class RpcCmdGetCmds : public RpcCommand {
 public:
    RpcCmdGetCmds() : RpcCommand("cmds") {}

 protected:
    int _run(const std::string&, const Json::Value&, Json::Value& res) override {
        std::vector<std::string> keys;
        Server::g_ptr->get_rpc_cmds(keys);
        res["result"] = to_json_array(keys);
        return CMD_OK;
    }
};

/** The reports kept in memory, oldest first. */
class RpcCmdGetEvents : public RpcCommand {
 public:
    RpcCmdGetEvents() : RpcCommand("events") {}

 protected:
    int _run(const std::string&, const Json::Value& params, Json::Value& res) override {
        guarded(res, [&] {
            Json::Value& events = res["result"]["events"] = Json::arrayValue;
            parse_choice(params, "type", {"hog"}, res);
            for (const auto& report : Server::g_ptr->get_sig_events())
                events.append(report->to_json());
        });
        return CMD_OK;
    }
};

void add_basic_commands(RpcComponent& component) {
    component.add(new RpcCmdPing());
    component.add(new RpcCmdEcho());
    component.add(new RpcCmdShutdown());
    component.add(new RpcCmdGetCmds());
}

void add_events_commands(RpcComponent& component) {
    component.add(new RpcCmdGetEvents());
}

}  // namespace corvo
