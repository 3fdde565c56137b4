#include "client/flows/flow_record.h"

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>
#include <cmath>

#include "client/text/json_access.h"

namespace brumectl::flows {

namespace {

/** The engine's names of transports. */
constexpr struct {
    const char* name;
    uint8_t number;
} TRANSPORTS[] = {{"tcp", 6},   {"udp", 17},   {"icmp", 1},  {"icmpv6", 58}, {"udplite", 136},
                  {"igmp", 2},  {"gre", 47},   {"esp", 50},  {"ah", 51},     {"ospf", 89},
                  {"pim", 103}, {"vrrp", 112}, {"sctp", 132}};
/** And what comes before the number of one without a name. */
constexpr const char* NUMBERED = "ip-proto-";

uint8_t transport_of(const std::string& name) {
    for (const auto& known : TRANSPORTS)
        if (name == known.name) return known.number;
    uint8_t number = 0;
    const std::string start = NUMBERED;
    if (name.rfind(start, 0) == 0)
        std::from_chars(name.data() + start.size(), name.data() + name.size(), number);
    return number;
}

uint64_t ms_of(const Json::Value& seconds) {
    constexpr double LATEST_SEC = 1e11;
    if (!seconds.isNumeric()) return 0;
    return static_cast<uint64_t>(std::llround(std::clamp(seconds.asDouble(), 0.0, LATEST_SEC) * 1000));
}

uint16_t port_of(const Json::Value& port) {
    return static_cast<uint16_t>(count_of(port));
}

}  // namespace

std::optional<FlowRecord> FlowRecord::read(const Json::Value& flow) {
    FlowRecord out;
    const std::string client = string_of(member_of(flow, "client"));
    const std::string server = string_of(member_of(flow, "server"));
    out.family = client.find(':') != std::string::npos ? AF_INET6 : AF_INET;
    if (inet_pton(out.family, client.c_str(), out.client.data()) != 1 ||
        inet_pton(out.family, server.c_str(), out.server.data()) != 1)
        return std::nullopt;
    out.client_port = port_of(member_of(flow, "client_port"));
    out.server_port = port_of(member_of(flow, "server_port"));
    out.protocol = transport_of(string_of(member_of(flow, "transport")));
    const Traffic all = {count_of(member_of(flow, "packets")), count_of(member_of(flow, "bytes"))};
    out.to_server = {count_of(member_of(flow, "packets_to_server")),
                     count_of(member_of(flow, "bytes_to_server"))};
    out.to_client = all - out.to_server;
    out.start_ms = ms_of(member_of(flow, "first_seen"));
    out.end_ms = ms_of(member_of(flow, "last_seen"));
    out.application = static_cast<uint32_t>(count_of(member_of(flow, "cls")));
    out.name = string_of(member_of(flow, "protocol"));
    out.category = string_of(member_of(flow, "category"));
    out.server_name = string_of(member_of(flow, "sni"));
    if (out.name.rfind("HTTP", 0) == 0) out.http_host = string_of(member_of(flow, "host"));
    return out;
}

}  // namespace brumectl::flows
