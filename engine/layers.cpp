#include "layers.h"

namespace corvo::engine {
namespace {

struct IpProtocolName {
    uint8_t protocol;
    const char* name;
};
constexpr IpProtocolName IP_PROTOCOL_NAMES[] = {
    {PROTO_TCP, "tcp"},
    {PROTO_UDP, "udp"},
    {PROTO_ICMP, "icmp"},
    {PROTO_ICMPV6, "icmpv6"},
    {PROTO_UDPLITE, "udplite"},
    {2, "igmp"},
    {47, "gre"},
    {50, "esp"},
    {51, "ah"},
    {89, "ospf"},
    {103, "pim"},
    {112, "vrrp"},
    {132, "sctp"},
};

}  // namespace

std::string ip_protocol_name(uint8_t protocol) {
    for (const IpProtocolName& known : IP_PROTOCOL_NAMES) {
        if (known.protocol == protocol) return known.name;
    }
    return "ip-proto-" + std::to_string(protocol);
}

void append_layers(const Frame& frame, const Verdict& verdict, std::vector<std::string>& out) {
    out.reserve(8);  // more are rare
    out.emplace_back("eth");
    for (unsigned i = 0; i < frame.tags; i++) {
        out.emplace_back(frame.service_tags & (1u << i) ? "qinq" : "vlan");
    }
    for (unsigned i = 0; i < frame.outer_packets; i++) {
        out.emplace_back(frame.outer_ipv6 & (1u << i) ? "ipv6" : "ipv4");
    }
    if (frame.version == 0) return;
    out.emplace_back(frame.version == 4 ? "ipv4" : "ipv6");
    if (frame.error != api::PKT_OK) return;
    out.push_back(ip_protocol_name(frame.protocol));
    if (verdict.cls() == 0) return;
    for (const std::string& layer : verdict.entry->layers) {
        if (layer != out.back()) out.push_back(layer);
    }
}

}  // namespace corvo::engine
