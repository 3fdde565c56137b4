#pragma once
// Decodes one Ethernet frame down to its transport header; where IP is tunnelled in IP, that of the innermost
// packet. Nothing in the frame is trusted, and nothing outside it is read.

#include <brumecpd/engine_api.h>

#include <cstddef>
#include <cstdint>

namespace corvo::engine {

enum ip_proto_e : uint8_t {
    PROTO_ICMP = 1,
    PROTO_IPV4 = 4,
    PROTO_TCP = 6,
    PROTO_UDP = 17,
    PROTO_IPV6 = 41,
    PROTO_ICMPV6 = 58,
    PROTO_UDPLITE = 136,
};

enum tcp_flag_e : uint8_t { TCP_FIN = 1, TCP_RST = 4 };

/** Where things are in a frame. The pointers point into the frame itself. */
struct Frame {
    const uint8_t* l3 = nullptr;   ///< the innermost IP header; null if there is none
    const uint8_t* src = nullptr;  ///< source address, 4 or 16 bytes
    const uint8_t* dst = nullptr;
    uint16_t l3_len =
        0;  ///< bytes from `l3` on: the IP packet's own length, or as much of it as was captured
    uint16_t src_port = 0;  ///< host byte order; 0 for protocols without ports and where they are cut off
    uint16_t dst_port = 0;
    uint8_t version = 0;   ///< 4 or 6; 0 if there is no IP header
    uint8_t protocol = 0;  ///< transport protocol, after any IPv6 extension headers
    uint8_t tcp_flags = 0;
    uint8_t tags = 0;           ///< number of VLAN tags, at most MAX_TAGS
    uint8_t service_tags = 0;   ///< bit n is set if tag n, counted from the outermost, is a service tag
    uint16_t vlan = 0;          ///< ID of the innermost VLAN; 0 without a tag
    uint8_t outer_packets = 0;  ///< number of IP packets around this one, at most MAX_OUTER
    uint8_t outer_ipv6 = 0;     ///< bit n is set if packet n, counted from the outermost, is IPv6
    api::pkt_error_e error =
        api::PKT_OK;  ///< if not PKT_OK, unusable; the fields hold what was found up to the error

    static constexpr unsigned MAX_TAGS = 4;
    static constexpr unsigned MAX_OUTER = 4;
};

Frame decode_frame(const uint8_t* data, size_t len);

}  // namespace corvo::engine
