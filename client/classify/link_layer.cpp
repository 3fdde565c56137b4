#include "client/classify/link_layer.h"

#include <pcap/dlt.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "utils/pcap/pcap_bytes.h"
#include "utils/pcap/pcap_packet.h"

namespace brumectl::link_layer {

namespace {

using corvo::load_be16;

enum ether_type_e : uint32_t {
    QINQ = 0x88A8,
    OLD_QINQ = 0x9100,
    MPLS = 0x8847,
    MPLS_MULTICAST = 0x8848,
    PPPOE_SESSION = 0x8864,
    MAX_LENGTH = 1500,  ///< not a type, but the length of the rest
};

// Reasons in addition to EtherTypes, which have 16 bits.
constexpr uint32_t CUT = 0x10000, TOO_LONG = 0x10001, NO_IP = 0x10002, LLC = 0x10003, NESTED = 0x10004;
constexpr uint32_t PPP = 0x20000;  ///< combined with its protocol

constexpr int MAX_HEADERS = 16;
constexpr size_t SNAP_SIZE = 8, PPPOE_SIZE = 6, MPLS_LABEL_SIZE = 4, HDLC_SIZE = 4;
constexpr uint32_t MAC_ADDRESSES = 12;

/** Walks through the headers around a packet. */
struct Walk {
    const unsigned char* bytes;
    uint32_t held;
    uint32_t offset = 0;  ///< of the header or packet that `type` names
    uint32_t type = 0;    ///< EtherType, or the reason for stopping
    bool tagged = false;
    uint32_t tag = 0;

    const unsigned char* at() const { return bytes + offset; }
    bool has(size_t size) const { return held - offset >= size; }
    bool is_ip() const { return type == corvo::kEtherTypeIpv4 || type == corvo::kEtherTypeIpv6; }
    bool end(uint32_t reason) {
        type = reason;
        return false;
    }

    /** Handles a header of this size with a type, or the length of an 802.3 frame, at `type_at`. */
    bool typed(size_t size, size_t type_at) {
        if (!has(size)) return end(CUT);
        type = load_be16(at() + type_at);
        offset += static_cast<uint32_t>(size);
        return true;
    }
    /** The family number before a packet differs between systems, but the IP version doesn't. */
    bool bare(size_t header) {
        if (!has(header + 1)) return end(CUT);
        offset += static_cast<uint32_t>(header);
        const unsigned version = at()[0] >> 4;
        if (version != 4 && version != 6) return end(NO_IP);
        type = version == 4 ? corvo::kEtherTypeIpv4 : corvo::kEtherTypeIpv6;
        return true;
    }
    bool ppp() {
        if (has(2) && at()[0] == 0xFF && at()[1] == 0x03) offset += 2;
        if (!has(2)) return end(CUT);
        const bool is_short = (at()[0] & 1) != 0;
        const uint32_t protocol = is_short ? at()[0] : load_be16(at());
        offset += is_short ? 1 : 2;
        constexpr struct {
            uint32_t protocol, type;
        } KNOWN[] = {{0x21, corvo::kEtherTypeIpv4}, {0x57, corvo::kEtherTypeIpv6}, {0x281, MPLS}};
        for (const auto& known : KNOWN)
            if (protocol == known.protocol) {
                type = known.type;
                return true;
            }
        return end(PPP | protocol);
    }
    /** Cisco's framing, or PPP: the first bytes differ. */
    bool serial() {
        if (has(1) && (at()[0] & 0x7F) == 0x0F) return typed(HDLC_SIZE, 2);
        return ppp();
    }
    bool pppoe() {
        if (!has(PPPOE_SIZE)) return end(CUT);
        offset += PPPOE_SIZE;
        return ppp();
    }
    bool mpls() {
        const uint32_t outer = type;
        for (bool is_last = false; !is_last; offset += MPLS_LABEL_SIZE) {
            if (!has(MPLS_LABEL_SIZE)) return end(CUT);
            is_last = (at()[2] & 1) != 0;
        }
        return bare(0) || end(type == NO_IP ? outer : type);
    }
    bool snap() {
        static constexpr unsigned char HEADER[] = {0xAA, 0xAA, 3, 0, 0, 0};
        if (!has(SNAP_SIZE) || memcmp(at(), HEADER, sizeof(HEADER)) != 0) return end(LLC);
        return typed(SNAP_SIZE, sizeof(HEADER));
    }
    bool vlan() {
        if (!has(corvo::kVlanTagSize)) return end(CUT);
        tagged = true;
        tag = load_be16(at());
        return typed(corvo::kVlanTagSize, 2);
    }

    /** Skips one more header. False if no packet follows. */
    bool step() {
        switch (type) {
            case corvo::kEtherTypeVlan:
            case QINQ:
            case OLD_QINQ:
                return vlan();
            case PPPOE_SESSION:
                return pppoe();
            case MPLS:
            case MPLS_MULTICAST:
                return mpls();
            default:
                return type <= MAX_LENGTH ? snap() : false;
        }
    }
};

/** Skips the link's own header. */
constexpr struct Link {
    int dlt;
    bool (*enter)(Walk& walk);
} LINKS[] = {
    {DLT_EN10MB, [](Walk& walk) { return walk.typed(corvo::kEtherHeader, corvo::kEtherTypeOffset); }},
    {DLT_RAW, [](Walk& walk) { return walk.bare(0); }},
    {DLT_IPV4, [](Walk& walk) { return walk.bare(0); }},
    {DLT_IPV6, [](Walk& walk) { return walk.bare(0); }},
    {DLT_NULL, [](Walk& walk) { return walk.bare(4); }},
    {DLT_LOOP, [](Walk& walk) { return walk.bare(4); }},
    {DLT_LINUX_SLL, [](Walk& walk) { return walk.typed(16, 14); }},
    {DLT_LINUX_SLL2, [](Walk& walk) { return walk.typed(20, 0); }},
    {DLT_PPP, [](Walk& walk) { return walk.serial(); }},
    {DLT_PPP_SERIAL, [](Walk& walk) { return walk.serial(); }},
    {DLT_C_HDLC, [](Walk& walk) { return walk.serial(); }},
    {DLT_PPP_ETHER, [](Walk& walk) { return walk.pppoe(); }},
    {DLT_PPP_WITH_DIR, [](Walk& walk) { return walk.has(1) ? (++walk.offset, walk.ppp()) : walk.end(CUT); }},
};

const Link* find(int dlt) {
    const Link* found =
        std::find_if(std::begin(LINKS), std::end(LINKS), [dlt](const Link& link) { return link.dlt == dlt; });
    return found == std::end(LINKS) ? nullptr : found;
}

void put_whole(const RawFrame& raw, EthernetFrame& out) {
    out.head_size = 0;
    out.rest = raw.bytes;
    out.rest_size = raw.held;
    out.zeros = raw.len - raw.held;
}

void put_anew(bool is_ethernet, const Walk& walk, const RawFrame& raw, EthernetFrame& out) {
    if (is_ethernet)
        memcpy(out.head, raw.bytes, MAC_ADDRESSES);
    else
        memset(out.head, 0, MAC_ADDRESSES);
    out.head_size = MAC_ADDRESSES;
    const auto put = [&](uint32_t word) {
        corvo::store_be16(out.head + out.head_size, word);
        out.head_size += 2;
    };
    if (walk.tagged) {
        put(corvo::kEtherTypeVlan);
        put(walk.tag);
    }
    put(walk.type);
    out.rest = walk.at();
    out.rest_size = raw.held - walk.offset;
    out.zeros = raw.len - raw.held;
    if (is_ethernet) out.zeros += walk.offset - out.head_size;
}

}  // namespace

bool is_known(int link) {
    return find(link) != nullptr;
}

uint32_t to_ethernet(int link, const RawFrame& raw, EthernetFrame& out) {
    const bool is_ethernet = link == DLT_EN10MB;
    out.padded = raw.held < raw.len;
    if (is_ethernet && raw.held >= corvo::kMinIpFrame && raw.len <= corvo::CCapPkt::kMaxFrame &&
        corvo::ether_payload(raw.bytes).is_ip()) {
        put_whole(raw, out);
        return 0;
    }
    if (raw.len > corvo::CCapPkt::kMaxFrame) return TOO_LONG;
    Walk walk{raw.bytes, raw.held};
    if (!find(link)->enter(walk)) return walk.type;
    for (int headers = 0; !walk.is_ip(); ++headers) {
        if (headers == MAX_HEADERS) return NESTED;
        if (!walk.step()) return walk.type;
    }
    put_anew(is_ethernet, walk, raw, out);
    return out.size() > corvo::CCapPkt::kMaxFrame ? TOO_LONG : 0;
}

std::string reason_text(uint32_t reason) {
    constexpr struct {
        uint32_t reason;
        const char* text;
    } KNOWN[] = {
        {0x0806, "ARP"},
        {0x8035, "RARP"},
        {0x8863, "PPPoE's discovery"},
        {0x8809, "LACP and the like"},
        {0x888E, "EAPOL"},
        {0x88CC, "LLDP"},
        {0x88E5, "MACsec"},
        {0x88F7, "PTP"},
        {MPLS, "MPLS without IP"},
        {CUT, "headers cut short"},
        {TOO_LONG, "longer than 65535 bytes"},
        {NO_IP, "neither IPv4 nor IPv6"},
        {LLC, "LLC, as of bridges"},
        {NESTED, "too many headers"},
    };
    for (const auto& known : KNOWN)
        if (reason == known.reason) return known.text;
    char text[40];
    snprintf(text, sizeof(text), reason >= PPP ? "protocol 0x%04x of PPP" : "EtherType 0x%04x",
             static_cast<unsigned>(reason & 0xFFFF));
    return text;
}

}  // namespace brumectl::link_layer
