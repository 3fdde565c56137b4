#include "frame.h"

#include <algorithm>

namespace corvo::engine {
namespace {

constexpr size_t ETH_HEADER = 14;
constexpr size_t TAG = 4;
constexpr size_t IPV4_HEADER = 20;
constexpr size_t IPV6_HEADER = 40;
constexpr size_t TCP_HEADER = 20;
constexpr size_t UDP_HEADER = 8;

enum ether_type_e : uint16_t {
    TYPE_IPV4 = 0x0800,
    TYPE_IPV6 = 0x86dd,
    TYPE_VLAN = 0x8100,
    TYPE_SERVICE_VLAN = 0x88a8,
    TYPE_OLD_SERVICE_VLAN = 0x9100,
};

enum extension_e : uint8_t {
    EXT_HOP_BY_HOP = 0,
    EXT_ROUTING = 43,
    EXT_FRAGMENT = 44,
    EXT_DESTINATION = 60,
    EXT_MOBILITY = 135,
};

uint16_t be16(const uint8_t* p) {
    return static_cast<uint16_t>(p[0] << 8 | p[1]);
}

void decode_ip(Frame& frame, const uint8_t* ip, size_t captured);

/** Continues with the packet inside the one decoded so far. */
void decode_inner(Frame& frame, size_t l4_off) {
    if (frame.outer_packets == Frame::MAX_OUTER) {
        frame.error = api::PKT_NON_IP;
        return;
    }
    if (frame.version == 6) frame.outer_ipv6 |= static_cast<uint8_t>(1u << frame.outer_packets);
    frame.outer_packets++;
    frame.version = frame.protocol == PROTO_IPV4 ? 4 : 6;
    decode_ip(frame, frame.l3 + l4_off, frame.l3_len - l4_off);
}

/** `l4_off` counts from the IP header. A truncated transport header has no ports. */
void decode_transport(Frame& frame, size_t l4_off) {
    const uint8_t* l4 = frame.l3 + l4_off;
    const size_t left = frame.l3_len - l4_off;
    switch (frame.protocol) {
        case PROTO_IPV4:
        case PROTO_IPV6:
            decode_inner(frame, l4_off);
            return;
        case PROTO_TCP:
            if (left < TCP_HEADER) return;
            frame.tcp_flags = l4[13];
            break;
        case PROTO_UDP:
        case PROTO_UDPLITE:
            if (left < UDP_HEADER) return;
            break;
        default:
            return;
    }
    frame.src_port = be16(l4);
    frame.dst_port = be16(l4 + 2);
}

void decode_ipv4(Frame& frame, size_t captured) {
    const uint8_t* ip = frame.l3;
    if (captured < IPV4_HEADER) {
        frame.error = api::PKT_TRIMMED_L3;
        return;
    }
    size_t header = (ip[0] & 15u) * size_t{4};
    size_t total = be16(ip + 2);
    frame.l3_len = static_cast<uint16_t>(std::min(total, captured));
    if (header < IPV4_HEADER || header > frame.l3_len) {
        frame.error = api::PKT_TRIMMED_L3;
        return;
    }
    frame.src = ip + 12;
    frame.dst = ip + 16;
    frame.protocol = ip[9];
    if (be16(ip + 6) & 0x1fff) {
        frame.error = api::PKT_NON_FFRAG;
        return;
    }
    decode_transport(frame, header);
}

/** Size of the extension header at `p`; 0 if `type` isn't an extension header. */
size_t extension_size(uint8_t type, const uint8_t* p) {
    switch (type) {
        case EXT_HOP_BY_HOP:
        case EXT_ROUTING:
        case EXT_DESTINATION:
        case EXT_MOBILITY:
            return (p[1] + size_t{1}) * 8;
        case EXT_FRAGMENT:
            return 8;
        default:
            return 0;
    }
}

void decode_ipv6(Frame& frame, size_t captured) {
    const uint8_t* ip = frame.l3;
    if (captured < IPV6_HEADER) {
        frame.error = api::PKT_TRIMMED_L3;
        return;
    }
    frame.l3_len = static_cast<uint16_t>(std::min(IPV6_HEADER + be16(ip + 4), captured));
    frame.src = ip + 8;
    frame.dst = ip + 24;
    frame.protocol = ip[6];
    size_t at = IPV6_HEADER;
    static const uint8_t none[2] = {};
    while (extension_size(frame.protocol, none) != 0) {
        bool readable = at + 8 <= frame.l3_len;
        size_t size = readable ? extension_size(frame.protocol, ip + at) : 0;
        if (!readable || size > frame.l3_len - at) {
            frame.error = api::PKT_TRIMMED_L3;
            return;
        }
        // Only the first fragment has the transport header.
        if (frame.protocol == EXT_FRAGMENT && (be16(ip + at + 2) & 0xfff8)) {
            frame.error = api::PKT_IPV6_FRAG;
            return;
        }
        frame.protocol = ip[at];
        at += size;
    }
    decode_transport(frame, at);
}

/** `frame.version` is the IP version to expect. */
void decode_ip(Frame& frame, const uint8_t* ip, size_t captured) {
    if (captured == 0 || ip[0] >> 4 != frame.version) {
        frame.error = captured == 0 ? api::PKT_TRIMMED_L3 : api::PKT_NON_IP;
        if (!frame.l3) frame.version = 0;
        return;
    }
    frame.l3 = ip;
    if (frame.version == 4)
        decode_ipv4(frame, captured);
    else
        decode_ipv6(frame, captured);
}

}  // namespace

Frame decode_frame(const uint8_t* data, size_t len) {
    Frame frame;
    if (!data || len < ETH_HEADER) {
        frame.error = api::PKT_TRIMMED_L3;
        return frame;
    }
    len = std::min<size_t>(len, UINT16_MAX);
    size_t at = ETH_HEADER;
    uint16_t type = be16(data + 12);
    while (type == TYPE_VLAN || type == TYPE_SERVICE_VLAN || type == TYPE_OLD_SERVICE_VLAN) {
        if (frame.tags == Frame::MAX_TAGS) {
            frame.error = api::PKT_NON_IP;
            return frame;
        }
        if (len < at + TAG) {
            frame.error = api::PKT_TRIMMED_L3;
            return frame;
        }
        if (type != TYPE_VLAN) frame.service_tags |= static_cast<uint8_t>(1u << frame.tags);
        frame.tags++;
        frame.vlan = be16(data + at) & 0x0fff;
        type = be16(data + at + 2);
        at += TAG;
    }
    if (type != TYPE_IPV4 && type != TYPE_IPV6) {
        frame.error = api::PKT_NON_IP;
        return frame;
    }
    frame.version = type == TYPE_IPV4 ? 4 : 6;
    decode_ip(frame, data + at, len - at);
    return frame;
}

}  // namespace corvo::engine
