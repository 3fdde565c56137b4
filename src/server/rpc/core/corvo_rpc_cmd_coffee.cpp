// Calls a named internal function of the data path.

#include <vector>

#include "server/corvo_server.h"
#include "server/corvo_server_loader.h"
#include "server/rpc/core/corvo_rpc_cmds.h"
#include "server/rpc/core/corvo_rpc_values.h"

namespace corvo {

class RpcCmdCoffee : public RpcCommand {
 public:
    RpcCmdCoffee() : RpcCommand("coffee") {}

 protected:
    int _run(const std::string&, const Json::Value& params, Json::Value& res) override {
        guarded(res, [&] {
            const auto func = required_param<std::string>(*this, params, "func", res);
            const Json::Value& list = optional_field(params, "args");
            if (!list.isNull()) check_field_type(params, "args", TYPE_ARRAY, res);
            const auto dpaddr = optional_param<std::string>(*this, params, "dpaddr", "", res);
            std::vector<uint32_t> args;
            args.reserve(list.size());
            for (int i = 0; i < static_cast<int>(list.size()); ++i) {
                check_field_type(list, i, TYPE_UINT32, res);
                args.push_back(list[i].asUInt());
            }
            res["result"] = server::Server::g_ptr->engine()->coffee(dpaddr, func, args);
        });
        return CMD_OK;
    }
};

void add_coffee_commands(RpcComponent& component) {
    component.add(new RpcCmdCoffee());
}

}  // namespace corvo
