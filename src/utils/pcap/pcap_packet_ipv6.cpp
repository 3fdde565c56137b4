// Conversion of an IPv4 frame to an IPv6 frame.

#include <cstring>

#include "utils/pcap/pcap_bytes.h"
#include "utils/pcap/pcap_packet.h"

namespace corvo {

namespace {

constexpr unsigned char PROTO_TCP = 6;
constexpr uint32_t TCP_CHECKSUM = 16;  // offset in the TCP header

/** `ip` is a new IPv6 header, followed by a TCP segment of `size` bytes. */
void set_tcp_checksum(unsigned char* ip, uint32_t size) {
    unsigned char* tcp = ip + kIpv6Header;
    store_be16(tcp + TCP_CHECKSUM, 0);
    uint32_t sum = CCapPkt::InetChecksum(ip + 8, 32, 0);
    sum += size + PROTO_TCP;  // both values fit in the low word of their four bytes
    sum = CCapPkt::InetChecksum(tcp, static_cast<uint16_t>(size), sum);
    if (size % 2 != 0) sum += static_cast<uint32_t>(tcp[size - 1]) << 8;
    while (sum >> 16)
        sum = (sum >> 16) + (sum & 0xFFFF);
    store_be16(tcp + TCP_CHECKSUM, ~sum);
}

/** Fills the IPv6 header from the IPv4 one; all fields not set here are 0. */
void convert_header(const unsigned char* ipv4, unsigned char* ipv6, uint32_t payload) {
    memset(ipv6, 0, kIpv6Header);
    ipv6[0] = 0x60;
    store_be16(ipv6 + 4, payload);
    ipv6[6] = ipv4[9];
    ipv6[7] = 64;
    uint32_t source = load_be32(ipv4 + 12);
    uint32_t destination = load_be32(ipv4 + 16);
    for (size_t word = 0; word < 4; word++) {
        memcpy(ipv6 + 8 + 4 * word, &source, sizeof(source));
        memcpy(ipv6 + 24 + 4 * word, &destination, sizeof(destination));
    }
}

}  // namespace

uint8_t CCapPkt::convertPktToIpv6InPlace() {
    if (length < kMinIpFrame) return 0;
    EtherPayload ether = ether_payload(data.get());
    if (ether.type == kEtherTypeIpv6 && !ether.has_vlan()) return static_cast<uint8_t>(length);
    if (ether.type != kEtherTypeIpv4) return 0;

    uint32_t available = length - ether.offset;
    if (available < kIpv4Header) return 0;
    const unsigned char* ipv4 = data.get() + ether.offset;
    uint32_t total_length = load_be16(ipv4 + 2);
    uint32_t header_length = (ipv4[0] & 0x0FU) * 4;
    if (total_length < header_length || total_length > available) return 0;
    uint32_t payload = total_length - header_length;
    uint32_t new_length = ether.offset + kIpv6Header + payload;
    if (new_length > kMaxFrame) return 0;

    unsigned char frame[kMaxFrame];
    unsigned char* ipv6 = frame + ether.offset;
    memcpy(frame, data.get(), ether.offset);
    store_be16(ipv6 - 2, kEtherTypeIpv6);
    convert_header(ipv4, ipv6, payload);
    memcpy(ipv6 + kIpv6Header, ipv4 + header_length, payload);
    if (ipv6[6] == PROTO_TCP && payload >= TCP_CHECKSUM + 2) set_tcp_checksum(ipv6, payload);

    updatePacketData(frame, new_length);
    length = static_cast<uint16_t>(new_length);
    return static_cast<uint8_t>(length);
}

}  // namespace corvo
