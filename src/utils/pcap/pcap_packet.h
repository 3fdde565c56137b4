#pragma once
// One Ethernet frame and where its IP and transport headers are. Frames come from capture files and from
// clients, so no field of one is trusted: whatever a frame says, nothing is read past its length.

#include <cstdint>
#include <memory>
#include <string>

namespace corvo {

/** What the validity checks of `CCapPkt` found, summed over the frames they were run on. */
struct CFiaCounters {
    uint32_t non_ip = 0;        ///< frames that aren't IP
    uint32_t vlan = 0;          ///< frames with a VLAN tag
    uint32_t bad_version = 0;   ///< IPv4 header with another version
    uint32_t bad_checksum = 0;  ///< IPv4 header checksum wrong; the frame is valid all the same
    uint32_t short_pkt = 0;     ///< frames shorter than their headers say
    uint32_t broadcast = 0;     ///< IPv4 destination 255.255.255.255; valid all the same
    uint32_t bad_length = 0;    ///< IPv4 total length below the header length
};

/**
 * A record that is used for one frame after the other: its buffer grows to the largest frame and stays.
 * `l3` and `l4` belong to the frame that was parsed last; new frame bytes clear them until the next `parse`.
 */
class CCapPkt {
 public:
    static constexpr uint32_t kMaxFrame = 65535;  ///< bytes

    uint32_t time_sec = 0;        ///< capture time, seconds
    uint32_t time_nsec = 0;       ///< capture time, nanoseconds
    unsigned char* l3 = nullptr;  ///< IP header within the frame; null until `parse` succeeds
    unsigned char* l4 =
        nullptr;  ///< transport header; may lie at the frame's very end, with no byte of it there

    CCapPkt() = default;
    /** Copies `len` bytes; the frame's length is the low 16 bits of `len`. */
    CCapPkt(const unsigned char* src, unsigned int len);
    CCapPkt(const CCapPkt&) = delete;
    CCapPkt& operator=(const CCapPkt&) = delete;

    unsigned char* GetPktBuffer() const { return data.get(); }
    uint16_t GetPktLen() const { return length; }
    /** Sets the frame's length. The buffer grows if it is smaller, keeping its bytes; the new ones are 0. */
    void SetPktLen(uint16_t len);

    /** Copies `size` bytes of a new frame into the buffer. The frame's length is left to `SetPktLen`. */
    void updatePacketData(const unsigned char* src, unsigned int size);
    /**
     * Room for a new frame of `size` bytes, for a reader that fills it without a detour. The old frame is
     * gone: the length is 0 and what the buffer holds is undefined. Valid until the next change.
     */
    unsigned char* prepare(uint32_t size);
    /** Hands the frame's buffer to the caller, without a copy, and leaves an empty packet behind. */
    std::unique_ptr<unsigned char[]> release_data();

    /** A deep copy of times and frame, in a buffer of exactly the frame's length, not parsed yet. */
    std::unique_ptr<CCapPkt> clone() const;
    void clone(CCapPkt* dst) const;

    /** Locates `l3` and `l4`. False, with both null, if the frame isn't a whole IPv4 or IPv6 packet. */
    bool parse();
    /** `parse` for one IP version, with the checks counted. `counters` may be null. */
    bool IsValidIpv4Packet(CFiaCounters* counters);
    bool IsValidIpv6Packet(CFiaCounters* counters);

    /** The IP header's version nibble, whatever it is; 0 if the frame is too short or not IP. */
    int GetIpVer() const;
    /** The transport protocol, behind IPv6 extension headers too; 59 if there is none, 0 if not IP. */
    int GetProtocol() const;
    // TCP flags; false for other protocols, before `parse`, and where the frame ends before the flags.
    bool IsSYN() const { return has_tcp_flag(2); }
    bool IsFIN() const { return has_tcp_flag(1); }
    bool IsRST() const { return has_tcp_flag(4); }
    /**
     * Address and port: "10.0.0.1:80", "fe80:0:0:0:0:0:0:1,80". Empty if not IP; port 0 for protocols
     * without ports, before `parse`, and where the frame ends before the port.
     */
    std::string GetSrcAddr() const;
    std::string GetDstAddr() const;

    /** The Internet checksum of `len` bytes: 0 over a header whose checksum field is right. */
    static uint16_t InetChecksum(const unsigned char* bytes, uint16_t len);
    /** Adds the whole 16-bit words of `len` bytes, big-endian, to `sum`, without folding. */
    static uint32_t InetChecksum(const unsigned char* bytes, uint16_t len, uint32_t sum);

    /**
     * Turns an IPv4 frame into an IPv6 frame with the same payload. The result is the low byte of the new
     * length, or 0, with the frame untouched, if it isn't a whole IPv4 packet or the result would be larger
     * than a frame can be. An IPv6 frame stays as it is.
     */
    uint8_t convertPktToIpv6InPlace();

 private:
    const unsigned char* ip_header(uint32_t size) const;
    uint32_t bytes_from(const unsigned char* header) const {
        return static_cast<uint32_t>(data.get() + length - header);
    }
    uint32_t transport_word(uint32_t offset) const;
    bool has_tcp_flag(uint32_t flag) const { return GetProtocol() == 6 && (transport_word(12) & flag); }
    std::string address(bool source) const;

    uint16_t length = 0;  // never above `capacity`
    std::unique_ptr<unsigned char[]> data;
    uint32_t capacity = 0;
};

}  // namespace corvo
