#pragma once
// Reads and writes words of frames and file headers in a fixed byte order. They may be unaligned.

#include <cstdint>

namespace corvo {

inline uint32_t load_be16(const unsigned char* p) {
    return static_cast<uint32_t>(p[0] << 8 | p[1]);
}

inline uint32_t load_be32(const unsigned char* p) {
    return load_be16(p) << 16 | load_be16(p + 2);
}

inline uint64_t load_le64(const unsigned char* p) {
    uint64_t value = 0;
    for (int i = 7; i >= 0; i--)
        value = value << 8 | p[i];
    return value;
}

inline void store_be16(unsigned char* p, uint32_t value) {
    p[0] = static_cast<unsigned char>(value >> 8);
    p[1] = static_cast<unsigned char>(value);
}

inline void store_le64(unsigned char* p, uint64_t value) {
    for (int i = 0; i < 8; i++, value >>= 8)
        p[i] = static_cast<unsigned char>(value);
}

// Layout of an Ethernet frame.
constexpr uint32_t kEtherTypeOffset = 12;
constexpr uint32_t kVlanTagSize = 4;
constexpr uint32_t kEtherHeader = 14;
constexpr uint32_t kEtherTypeIpv4 = 0x0800;
constexpr uint32_t kEtherTypeIpv6 = 0x86DD;
constexpr uint32_t kEtherTypeVlan = 0x8100;
constexpr uint32_t kMinIpFrame = 20;  ///< shorter frames are ignored

constexpr uint32_t kIpv4Header = 20;  ///< without options
constexpr uint32_t kIpv6Header = 40;

/** The payload's EtherType and offset, after at most one VLAN tag. */
struct EtherPayload {
    uint32_t type;
    uint32_t offset;

    bool has_vlan() const { return offset != kEtherHeader; }
    bool is_ip() const { return type == kEtherTypeIpv4 || type == kEtherTypeIpv6; }
};

/** `frame` must have at least `kMinIpFrame` bytes. */
inline EtherPayload ether_payload(const unsigned char* frame) {
    uint32_t type = load_be16(frame + kEtherTypeOffset);
    if (type != kEtherTypeVlan) return {type, kEtherHeader};
    return {load_be16(frame + kEtherTypeOffset + kVlanTagSize), kEtherHeader + kVlanTagSize};
}

}  // namespace corvo
