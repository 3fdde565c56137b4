#pragma once
// The way to the engine's collectors and its health monitoring, which both live in the library: parameters
// are checked here, the answer is handed on.

#include <json/value.h>

#include <cstdint>
#include <string>

#include "infra/corvo_rpc_command.h"

namespace corvo {

class RpcCmdCollect : public RpcCommand {
 public:
    RpcCmdCollect() : RpcCommand("collect") {}

 protected:
    int _run(const std::string& method, const Json::Value& params, Json::Value& res) override;

 private:
    void handle_collect_ls(Json::Value& res);
    void handle_collect_set_exporter(const Json::Value& params, Json::Value& res);
};

class RpcCmdHealth : public RpcCommand {
 public:
    RpcCmdHealth() : RpcCommand("health") {}

 protected:
    int _run(const std::string& method, const Json::Value& params, Json::Value& res) override;

 private:
    void handle_configure(const Json::Value& params, Json::Value& res);
};

}  // namespace corvo
