#pragma once
// Calls a named internal function of the data path.

#include <json/value.h>

#include <cstdint>
#include <string>

#include "infra/corvo_rpc_command.h"

namespace corvo {

class RpcCmdCoffee : public RpcCommand {
 public:
    RpcCmdCoffee() : RpcCommand("coffee") {}

 protected:
    int _run(const std::string& method, const Json::Value& params, Json::Value& res) override;
};

}  // namespace corvo
