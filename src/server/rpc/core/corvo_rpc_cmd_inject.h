#pragma once
// Pushes a capture file or one frame through the engine and tells what the engine made of it.

#include <json/value.h>

#include <cstdint>
#include <string>

#include "infra/corvo_rpc_command.h"
#include "server/corvo_server_loader.h"

namespace corvo {

class RpcCmdPushPCAP : public RpcCommand {
 public:
    RpcCmdPushPCAP() : RpcCommand("push_pcap") {}

 protected:
    int _run(const std::string& method, const Json::Value& params, Json::Value& res) override;

 private:
    void push_filename(const std::string& dpaddr, const std::string& filename, uint32_t ns_id, bool reset,
                       bool extended, Json::Value& res);
    /** `data` is the frame's bytes. */
    void push_buffer(const std::string& dpaddr, const std::string& data, uint32_t ns_id, bool reset,
                     bool extended, Json::Value& res);
    void get_pktinfo(server::Engine::PktInfo& info, Json::Value& out);
};

}  // namespace corvo
