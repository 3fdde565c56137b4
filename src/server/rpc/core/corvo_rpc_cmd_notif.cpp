#include "server/rpc/core/corvo_rpc_cmd_notif.h"

#include "infra/corvo_notif.h"

namespace corvo {

int RpcCmdNotifs::_run(const std::string&, const Json::Value& params, Json::Value& res) {
    guarded(res, [&] {
        res["result"] = Json::objectValue;
        notif::ops(params, res["result"]);
    });
    return CMD_OK;
}

}  // namespace corvo
