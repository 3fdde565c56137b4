#pragma once
// One object that tells the state of the server, the engine and the machine.

#include <json/value.h>

#include <cstdint>
#include <string>

#include "infra/corvo_rpc_command.h"
#include "server/corvo_server_loader.h"

namespace corvo {

/** Served in every state of the engine. A library that fails a question fails the whole command. */
class RpcCmdStatus : public RpcCommand {
 public:
    RpcCmdStatus() : RpcCommand("status") {}

 protected:
    int _run(const std::string& method, const Json::Value& params, Json::Value& res) override;

 private:
    void fill_proc_info(Json::Value& out);
    void fill_plat_info(Json::Value& out);
    void fill_ifs_info(Json::Value& out);
    void fill_dp_info(Json::Value& out);
    void fill_memory_info(Json::Value& out);
    void fill_engine_info(Json::Value& out);
    std::string eng_state_to_str(server::Engine::state_e state);
};

}  // namespace corvo
