// Pushes a capture file or one frame through the engine and returns the engine's results.

#include <json/value.h>

#include <iterator>
#include <string>
#include <unordered_map>

#include "infra/corvo_rpc_command.h"
#include "server/corvo_server.h"
#include "server/corvo_server_loader.h"
#include "server/rpc/core/corvo_rpc_cmds.h"
#include "server/rpc/core/corvo_rpc_values.h"
#include "utils/base64.h"

namespace corvo {

namespace {

using server::Engine;
using server::Server;

/** Indexed by api::pkt_error_e. */
constexpr const char* PKT_ERRORS[] = {"",       "inactive",  "max_flows_reached", "no_mem",
                                      "non_ip", "non_ffrag", "trimmed_l3",        "IPV6_frag"};

const char* pkt_error_to_str(api::pkt_error_e error) {
    return error < std::size(PKT_ERRORS) ? PKT_ERRORS[error] : "unknown";
}

}  // namespace

class RpcCmdPushPCAP : public RpcCommand {
 public:
    RpcCmdPushPCAP() : RpcCommand("push_pcap") {}

 protected:
    int _run(const std::string&, const Json::Value& params, Json::Value& res) override {
        // If `params` can't hold members, any read throws; here that fails the command instead of the server.
        guarded(res, [&] { optional_field(params, "type"); });
        const std::string type = parse_choice(params, "type", {"filename", "buffer"}, res);
        const auto dpaddr = optional_param<std::string>(*this, params, "dpaddr", "", res);
        const auto reset = required_param<bool>(*this, params, "reset", res);
        const auto extended = optional_param<bool>(*this, params, "extended", false, res);
        const auto ns_id = optional_param<uint32_t>(*this, params, "ns_id", 0, res);
        guarded(res, [&] {
            if (type == "filename") {
                push_filename(dpaddr, parse_string(params, "filename", res), ns_id, reset, extended, res);
            } else {
                push_buffer(dpaddr, b64_decode(parse_string(params, "buffer", res)), ns_id, reset, extended,
                            res);
            }
        });
        return CMD_OK;
    }

 private:
    void push_filename(const std::string& dpaddr, const std::string& filename, uint32_t ns_id, bool reset,
                       bool extended, Json::Value& res) {
        Engine& engine = *Server::g_ptr->engine();
        Json::Value& result = res["result"];
        if (extended) {
            Json::Value& pkts = result["pkts"] = Json::arrayValue;
            engine.push_pcap(dpaddr, filename, reset, ns_id, extended, [&](Engine::PktInfo&& info) {
                get_pktinfo(info, pkts.append(Json::objectValue));
            });
            return;
        }
        // Counted outside the document: a capture has millions of packets but few protocols.
        std::unordered_map<std::string, Json::Int> counts;
        Json::UInt total = 0;
        engine.push_pcap(dpaddr, filename, reset, ns_id, extended, [&](Engine::PktInfo&& info) {
            ++counts[info.protocol];
            ++total;
        });
        for (const auto& [protocol, count] : counts)
            result[protocol] = count;
        result["total"] = total;
    }

    /** `data` is the frame's bytes. */
    void push_buffer(const std::string& dpaddr, const std::string& data, uint32_t ns_id, bool reset,
                     bool extended, Json::Value& res) {
        Engine::PktInfo info;
        guarded(res, [&] {
            Server::g_ptr->engine()->push_raw_extended(dpaddr, data, ns_id, reset, extended, info);
        });
        Json::Value& result = res["result"];
        if (extended) {
            get_pktinfo(info, result["pkts"].append(Json::objectValue));
            return;
        }
        result["id"] = info.cls;
        result["protocol"] = info.protocol;
    }

    void get_pktinfo(Engine::PktInfo& info, Json::Value& out) {
        out[Key("src")] = info.src;
        out[Key("dst")] = info.dst;
        out[Key("len")] = info.len;
        out[Key("transport")] = info.transport;
        out[Key("protocol")] = info.protocol;
        out[Key("cls")] = info.cls;
        out[Key("aging_sec")] = info.aging_sec;
        out[Key("visibility")] = info.visibility;
        out[Key("error")] = pkt_error_to_str(info.error);
        Json::Value& categories = out[Key("cat")] = Json::arrayValue;
        for (const auto& [id, value] : info.cat) {
            Json::Value& category = categories.append(Json::objectValue);
            category[Key("cat_id")] = id;
            category[Key("cat_val")] = value;
        }
        out[Key("attr")] = to_json_array(info.attr);
        out[Key("tph")] = to_json_array(info.tph);
    }
};

void add_inject_commands(RpcComponent& component) {
    component.add(new RpcCmdPushPCAP());
}

}  // namespace corvo
