#pragma once
// The data of the memory tracer; refused in an image that has none.

#include <json/value.h>

#include <cstdint>
#include <string>

#include "infra/corvo_rpc_command.h"

namespace corvo {

class RpcCmdMemtraceInfo : public RpcCommand {
 public:
    RpcCmdMemtraceInfo() : RpcCommand("mt") {}

 protected:
    int _run(const std::string& method, const Json::Value& params, Json::Value& res) override;

 private:
    void dump_bts(Json::Value& out, unsigned threshold, unsigned char depth, Json::Value& res);
};

}  // namespace corvo
