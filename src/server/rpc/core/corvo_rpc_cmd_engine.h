#pragma once
// The methods that move the engine through its states. A parameter that is wrong, a state that forbids the
// operation and a library that fails all end as CMD_EXEC_FAILED, but for `path` and `cpaddr` of `load`.

#include <brumecpd/engine_api.h>
#include <json/value.h>

#include <cstdint>
#include <string>

#include "infra/corvo_rpc_command.h"

namespace corvo {

class RpcCmdLoad : public RpcCommand {
 public:
    RpcCmdLoad() : RpcCommand("load") {}

 protected:
    int _run(const std::string& method, const Json::Value& params, Json::Value& res) override;

 private:
    /** Fills the shared-memory members of `config`; the automatic choice where `params` holds no `shm`. */
    void parse_shm(const Json::Value& params, api::InitConfig& config, Json::Value& res);
};

class RpcCmdUnload : public RpcCommand {
 public:
    RpcCmdUnload() : RpcCommand("unload") {}

 protected:
    int _run(const std::string& method, const Json::Value& params, Json::Value& res) override;
};

class RpcCmdActivate : public RpcCommand {
 public:
    RpcCmdActivate() : RpcCommand("activate") {}

 protected:
    int _run(const std::string& method, const Json::Value& params, Json::Value& res) override;
};

class RpcCmdDeactivate : public RpcCommand {
 public:
    RpcCmdDeactivate() : RpcCommand("deactivate") {}

 protected:
    int _run(const std::string& method, const Json::Value& params, Json::Value& res) override;
};

class RpcCmdAttach : public RpcCommand {
 public:
    RpcCmdAttach() : RpcCommand("attach") {}

 protected:
    int _run(const std::string& method, const Json::Value& params, Json::Value& res) override;
};

class RpcCmdDetach : public RpcCommand {
 public:
    RpcCmdDetach() : RpcCommand("detach") {}

 protected:
    int _run(const std::string& method, const Json::Value& params, Json::Value& res) override;
};

}  // namespace corvo
