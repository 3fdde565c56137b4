#pragma once
// The methods that need no engine and look at the server alone.

#include <json/value.h>

#include <cstdint>
#include <string>

#include "infra/corvo_rpc_command.h"

namespace corvo {

/** Answers with seconds of the monotonic clock: a sign of life, no time of day. */
class RpcCmdPing : public RpcCommand {
 public:
    RpcCmdPing() : RpcCommand("ping") {}

 protected:
    int _run(const std::string& method, const Json::Value& params, Json::Value& res) override;
};

/** Writes a client's `message` into the log. Unguarded: a bad field is CMD_BAD_PARAMS. */
class RpcCmdEcho : public RpcCommand {
 public:
    RpcCmdEcho() : RpcCommand("echo") {}

 protected:
    int _run(const std::string& method, const Json::Value& params, Json::Value& res) override;
};

/** The server's loop ends once the reply is on its way. */
class RpcCmdShutdown : public RpcCommand {
 public:
    RpcCmdShutdown() : RpcCommand("shutdown") {}

 protected:
    int _run(const std::string& method, const Json::Value& params, Json::Value& res) override;
};

/** The keys of the whole table, those of an engine's components too. */
class RpcCmdGetCmds : public RpcCommand {
 public:
    RpcCmdGetCmds() : RpcCommand("cmds") {}

 protected:
    int _run(const std::string& method, const Json::Value& params, Json::Value& res) override;
};

/** The reports that are kept in memory, oldest first. */
class RpcCmdGetEvents : public RpcCommand {
 public:
    RpcCmdGetEvents() : RpcCommand("events") {}

 protected:
    int _run(const std::string& method, const Json::Value& params, Json::Value& res) override;
};

}  // namespace corvo
