#pragma once
// The RPC face of the notification hub, which reads the parameters itself: its data stays its own.

#include <json/value.h>

#include <cstdint>
#include <string>

#include "infra/corvo_rpc_command.h"

namespace corvo {

class RpcCmdNotifs : public RpcCommand {
 public:
    RpcCmdNotifs() : RpcCommand("notifications") {}

 protected:
    int _run(const std::string& method, const Json::Value& params, Json::Value& res) override;
};

}  // namespace corvo
