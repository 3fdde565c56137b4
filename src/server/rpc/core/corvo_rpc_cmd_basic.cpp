#include "server/rpc/core/corvo_rpc_cmd_basic.h"

#include <memory>
#include <vector>

#include "infra/corvo_logger.h"
#include "server/corvo_server.h"
#include "server/rpc/core/corvo_rpc_values.h"
#include "server/watchdog/corvo_server_sig.h"
#include "utils/clock.h"

namespace corvo {

namespace {

const std::string COMP = "rpc";
const std::string ECHO_COMP = "echo";

}  // namespace

int RpcCmdPing::_run(const std::string&, const Json::Value&, Json::Value& res) {
    res["result"]["ts"] = static_cast<Json::UInt64>(monotonic_sec());
    return CMD_OK;
}

int RpcCmdEcho::_run(const std::string&, const Json::Value& params, Json::Value& res) {
    const auto message = required_param<std::string>(*this, params, "message", res);
    CORVO_LOG(INFO, ECHO_COMP, "%s", message.c_str());
    res["result"] = Json::objectValue;
    return CMD_OK;
}

int RpcCmdShutdown::_run(const std::string&, const Json::Value&, Json::Value& res) {
    CORVO_LOG(INFO, COMP, "RPC request for shutdown");
    server::Server::g_ptr->stop(server::Server::EXIT_CAUSE_SHUTDOWN);
    res["result"] = Json::objectValue;
    return CMD_OK;
}

int RpcCmdGetCmds::_run(const std::string&, const Json::Value&, Json::Value& res) {
    std::vector<std::string> keys;
    server::Server::g_ptr->get_rpc_cmds(keys);
    res["result"] = to_json_array(keys);
    return CMD_OK;
}

int RpcCmdGetEvents::_run(const std::string&, const Json::Value& params, Json::Value& res) {
    guarded(res, [&] {
        Json::Value& events = res["result"]["events"] = Json::arrayValue;
        parse_choice(params, "type", {"hog"}, res);
        for (const auto& report : server::Server::g_ptr->get_sig_events())
            events.append(report->to_json());
    });
    return CMD_OK;
}

}  // namespace corvo
