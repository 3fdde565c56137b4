#include "utils/pcap/pcap_packet.h"

#include <algorithm>
#include <charconv>
#include <cstring>

#include "utils/pcap/pcap_bytes.h"

namespace corvo {

namespace {

enum : int {
    IP_HOP_BY_HOP = 0,
    IP_IPV4 = 4,
    IP_TCP = 6,
    IP_UDP = 17,
    IP_ROUTING = 43,
    IP_FRAGMENT = 44,
    IP_ICMPV6 = 58,
    IP_NO_NEXT_HEADER = 59,
    IP_DESTINATION = 60,
    IP_SCTP = 132,
};

bool is_extension(int next) {
    return next == IP_HOP_BY_HOP || next == IP_ROUTING || next == IP_DESTINATION;
}

/** Protocols whose header follows the extension headers; for others, `l4` counts from the IP header. */
bool stands_behind_extensions(int next) {
    switch (next) {
        case IP_IPV4:
        case IP_TCP:
        case IP_UDP:
        case IP_ICMPV6:
        case IP_NO_NEXT_HEADER:
        case IP_SCTP:
            return true;
        default:
            return false;
    }
}

/** Where the extension headers of an IPv6 packet end. */
struct Ipv6Payload {
    int next;         ///< the first value that isn't an extension header; 59 if the payload ends first
    uint32_t offset;  ///< of what follows, from the IP header
    bool used_up;     ///< there is no payload, or the extension headers fill it
};

/** `available` is the number of bytes from the IP header to the end of the frame, at least 40. */
Ipv6Payload walk_extensions(const unsigned char* ip, uint32_t available) {
    uint32_t left = std::min(load_be16(ip + 4), available - kIpv6Header);
    uint32_t offset = kIpv6Header;
    int next = ip[6];
    while (left > 0 && is_extension(next)) {
        // The smallest extension header has 8 bytes; with fewer left, this one runs past the payload.
        uint32_t size = left < 8 ? left : (ip[offset + 1] + 1U) * 8;
        next = ip[offset];
        left -= std::min(left, size);
        offset += size;
    }
    if (left == 0) return {IP_NO_NEXT_HEADER, kIpv6Header, true};
    return {next, offset, false};
}

bool refuse(CFiaCounters* counters, uint32_t CFiaCounters::*reason) {
    if (counters) (counters->*reason)++;
    return false;
}

}  // namespace

CCapPkt::CCapPkt(const unsigned char* src, unsigned int len) {
    updatePacketData(src, len);
    length = static_cast<uint16_t>(len);
}

void CCapPkt::SetPktLen(uint16_t len) {
    if (len > capacity) {
        auto larger = std::make_unique<unsigned char[]>(len);
        if (capacity > 0) memcpy(larger.get(), data.get(), capacity);
        data = std::move(larger);
        capacity = len;
        l3 = l4 = nullptr;
    }
    length = len;
}

void CCapPkt::updatePacketData(const unsigned char* src, unsigned int size) {
    l3 = l4 = nullptr;
    if (capacity < size) {
        auto larger = std::make_unique_for_overwrite<unsigned char[]>(size);
        memcpy(larger.get(), src, size);
        data = std::move(larger);
        capacity = size;
        return;
    }
    if (size > 0) memmove(data.get(), src, size);
}

unsigned char* CCapPkt::prepare(uint32_t size) {
    l3 = l4 = nullptr;
    length = 0;
    if (capacity < size) {
        data = std::make_unique_for_overwrite<unsigned char[]>(size);
        capacity = size;
    }
    return data.get();
}

std::unique_ptr<unsigned char[]> CCapPkt::release_data() {
    l3 = l4 = nullptr;
    length = 0;
    capacity = 0;
    return std::move(data);
}

std::unique_ptr<CCapPkt> CCapPkt::clone() const {
    auto copy = std::make_unique<CCapPkt>();
    clone(copy.get());
    return copy;
}

void CCapPkt::clone(CCapPkt* dst) const {
    if (dst == this) return;
    dst->time_sec = time_sec;
    dst->time_nsec = time_nsec;
    dst->release_data();
    dst->data = std::make_unique_for_overwrite<unsigned char[]>(length);
    dst->capacity = length;
    dst->length = length;
    if (length > 0) memcpy(dst->data.get(), data.get(), length);
}

bool CCapPkt::parse() {
    switch (GetIpVer()) {
        case 4:
            return IsValidIpv4Packet(nullptr);
        case 6:
            return IsValidIpv6Packet(nullptr);
        default:
            l3 = l4 = nullptr;
            return false;
    }
}

bool CCapPkt::IsValidIpv4Packet(CFiaCounters* counters) {
    l3 = l4 = nullptr;
    if (length < kMinIpFrame) return refuse(counters, &CFiaCounters::short_pkt);
    EtherPayload payload = ether_payload(data.get());
    if (payload.type != kEtherTypeIpv4) return refuse(counters, &CFiaCounters::non_ip);
    if (counters && payload.has_vlan()) counters->vlan++;

    uint32_t available = length - payload.offset;
    const unsigned char* ip = l3 = data.get() + payload.offset;
    if (available < 4) return refuse(counters, &CFiaCounters::short_pkt);
    uint32_t total_length = load_be16(ip + 2);
    uint32_t header_length = (ip[0] & 0x0FU) * 4;
    if (total_length < header_length) return refuse(counters, &CFiaCounters::bad_length);
    if (total_length > available) return refuse(counters, &CFiaCounters::short_pkt);
    if (ip[0] >> 4 != 4) return refuse(counters, &CFiaCounters::bad_version);
    if (header_length > available) return refuse(counters, &CFiaCounters::short_pkt);
    l4 = l3 + header_length;

    if (counters && InetChecksum(ip, static_cast<uint16_t>(header_length)) != 0) counters->bad_checksum++;
    // A header that claims to be shorter than the minimum may end before its addresses.
    if (counters && available >= kIpv4Header && load_be32(ip + 16) == 0xFFFFFFFF) counters->broadcast++;
    return true;
}

bool CCapPkt::IsValidIpv6Packet(CFiaCounters* counters) {
    l3 = l4 = nullptr;
    if (length < kMinIpFrame) return refuse(counters, &CFiaCounters::short_pkt);
    EtherPayload payload = ether_payload(data.get());
    if (!payload.is_ip()) return refuse(counters, &CFiaCounters::non_ip);
    if (counters && payload.has_vlan()) counters->vlan++;

    uint32_t available = length - payload.offset;
    const unsigned char* ip = l3 = data.get() + payload.offset;
    if (available < kIpv6Header || load_be16(ip + 4) + kIpv6Header > available)
        return refuse(counters, &CFiaCounters::short_pkt);

    Ipv6Payload transport = walk_extensions(ip, available);
    bool behind = !transport.used_up && stands_behind_extensions(transport.next);
    l4 = l3 + (behind ? transport.offset : kIpv6Header);
    return true;
}

int CCapPkt::GetIpVer() const {
    if (length < kMinIpFrame) return 0;
    EtherPayload payload = ether_payload(data.get());
    return payload.is_ip() ? data[payload.offset] >> 4 : 0;
}

/** The IP header, or null if the frame holds fewer than `size` bytes of it. The IP version must not be 0. */
const unsigned char* CCapPkt::ip_header(uint32_t size) const {
    const unsigned char* ip = data.get() + ether_payload(data.get()).offset;
    return bytes_from(ip) < size ? nullptr : ip;
}

int CCapPkt::GetProtocol() const {
    switch (GetIpVer()) {
        case 4: {
            const unsigned char* ip = ip_header(kIpv4Header);
            return ip ? ip[9] : 0;
        }
        case 6: {
            const unsigned char* ip = ip_header(kIpv6Header);
            if (!ip) return 0;
            int next = walk_extensions(ip, bytes_from(ip)).next;
            return next == IP_FRAGMENT ? ip[6] : next;
        }
        default:
            return 0;
    }
}

/** A big-endian word of the transport header; 0 if the frame ends before it. */
uint32_t CCapPkt::transport_word(uint32_t offset) const {
    if (!l4 || l4 > data.get() + length || bytes_from(l4) < offset + 2) return 0;
    return load_be16(l4 + offset);
}

std::string CCapPkt::GetSrcAddr() const {
    return address(true);
}

std::string CCapPkt::GetDstAddr() const {
    return address(false);
}

// Written by hand because both texts are made for every frame of a capture, and printf would cost as much as
// all other work on the frame.
std::string CCapPkt::address(bool source) const {
    int version = GetIpVer();
    if (version != 4 && version != 6) return {};
    const unsigned char* ip = ip_header(version == 4 ? kIpv4Header : kIpv6Header);
    if (!ip) return {};

    char text[49];
    char* const end = text + sizeof(text);
    char* out = text;
    if (version == 4) {
        const unsigned char* bytes = ip + (source ? 12 : 16);
        for (int i = 0; i < 4; i++) {
            out = std::to_chars(out, end, static_cast<unsigned int>(bytes[i])).ptr;
            *out++ = i < 3 ? '.' : ':';
        }
    } else {
        const unsigned char* words = ip + (source ? 8 : 24);
        for (size_t i = 0; i < 8; i++) {
            out = std::to_chars(out, end, load_be16(words + 2 * i), 16).ptr;
            *out++ = i < 7 ? ':' : ',';
        }
    }
    int protocol = GetProtocol();
    bool has_ports = protocol == IP_TCP || protocol == IP_UDP;
    out = std::to_chars(out, end, has_ports ? transport_word(source ? 0 : 2) : 0U).ptr;
    return {text, out};
}

uint16_t CCapPkt::InetChecksum(const unsigned char* bytes, uint16_t len) {
    uint32_t sum = InetChecksum(bytes, len, 0);
    if (len % 2 != 0) sum += static_cast<uint32_t>(bytes[len - 1]) << 8;
    while (sum >> 16)
        sum = (sum >> 16) + (sum & 0xFFFF);
    return static_cast<uint16_t>(~sum);
}

uint32_t CCapPkt::InetChecksum(const unsigned char* bytes, uint16_t len, uint32_t sum) {
    for (uint32_t i = 0; i + 2 <= len; i += 2)
        sum += load_be16(bytes + i);
    return sum;
}

}  // namespace corvo
