// The RPC face of the notification hub, which reads the parameters itself: its data stays its own.

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
