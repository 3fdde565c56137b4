// The notification hub's RPC method. The hub reads the parameters itself, so its data stays private.

#include "infra/corvo_notif.h"
#include "server/rpc/core/corvo_rpc_cmds.h"

namespace corvo {

class RpcCmdNotifs : public RpcCommand {
 public:
    RpcCmdNotifs() : RpcCommand("notifications") {}

 protected:
    int _run(const std::string&, const Json::Value& params, Json::Value& res) override {
        guarded(res, [&] {
            res["result"] = Json::objectValue;
            notif::ops(params, res["result"]);
        });
        return CMD_OK;
    }
};

void add_notif_commands(RpcComponent& component) {
    component.add(new RpcCmdNotifs());
}

}  // namespace corvo
