// Pushes a capture file or one frame through the engine and returns the engine's results.

#include <json/value.h>

#include <charconv>
#include <iterator>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "infra/corvo_rpc_command.h"
#include "infra/json/corvo_json.h"
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

void add_number(std::string& out, const char* before, uint32_t number) {
    char digits[10];
    out += before;
    out.append(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
}

void add_text(std::string& out, const char* before, std::string_view text) {
    out += before;
    json::append_string(out, text);
}

void add_texts(std::string& out, const char* before, const std::vector<std::string>& texts) {
    const char* separator = before;
    for (const std::string& text : texts)
        add_text(out, std::exchange(separator, ","), text);
    if (separator == before) out += before;
    out += ']';
}

/** The text of `{"pkts":[…]}`: a long capture's would take a value for each member of each packet. */
class PktList {
 public:
    /** Where the next packet's text is to be appended. */
    std::string& next() {
        if (m_text.back() != '[') m_text += ',';
        return m_text;
    }
    const std::string& end() { return m_text += "]}\n"; }

 private:
    std::string m_text = "{\"pkts\":[";
};

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
        if (extended) {
            PktList pkts;
            engine.push_pcap(dpaddr, filename, reset, ns_id, extended,
                             [&](Engine::PktInfo&& info) { get_pktinfo(info, pkts.next()); });
            res[RESULT_TEXT] = pkts.end();
            return;
        }
        // Counted outside the document: a capture has millions of packets but few protocols.
        std::unordered_map<std::string, Json::Int> counts;
        Json::UInt total = 0;
        engine.push_pcap(dpaddr, filename, reset, ns_id, extended, [&](Engine::PktInfo&& info) {
            ++counts[info.protocol];
            ++total;
        });
        Json::Value& result = res["result"];
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
        if (extended) {
            PktList pkts;
            get_pktinfo(info, pkts.next());
            res[RESULT_TEXT] = pkts.end();
            return;
        }
        Json::Value& result = res["result"];
        result["id"] = info.cls;
        result["protocol"] = info.protocol;
    }

    /** Members in ascending order, as in any other reply. */
    void get_pktinfo(const Engine::PktInfo& info, std::string& out) {
        add_number(out, "{\"aging_sec\":", info.aging_sec);
        add_texts(out, ",\"attr\":[", info.attr);
        out += ",\"cat\":[";
        for (const auto& [id, value] : info.cat) {
            add_number(out, out.back() == '[' ? "{\"cat_id\":" : ",{\"cat_id\":", id);
            add_number(out, ",\"cat_val\":", value);
            out += '}';
        }
        add_number(out, "],\"cls\":", info.cls);
        add_text(out, ",\"dst\":", info.dst);
        add_text(out, ",\"error\":", pkt_error_to_str(info.error));
        add_number(out, ",\"len\":", info.len);
        add_text(out, ",\"protocol\":", info.protocol);
        add_text(out, ",\"src\":", info.src);
        add_texts(out, ",\"tph\":[", info.tph);
        add_text(out, ",\"transport\":", info.transport);
        add_number(out, ",\"visibility\":", info.visibility);
        out += '}';
    }
};

void add_inject_commands(RpcComponent& component) {
    component.add(new RpcCmdPushPCAP());
}

}  // namespace corvo
