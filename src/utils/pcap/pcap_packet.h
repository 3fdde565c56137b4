#pragma once
// One Ethernet frame, and where its IP and transport headers are. Frames come from capture files and from
// clients, so none of their fields are trusted: nothing is ever read past a frame's length.

#include <cstdint>
#include <memory>
#include <string>

namespace corvo {

/** What the validity checks of `CCapPkt` found, summed over all checked frames. */
struct CFiaCounters {
    uint32_t non_ip = 0;        ///< frames that aren't IP
    uint32_t vlan = 0;          ///< frames with a VLAN tag
    uint32_t bad_version = 0;   ///< IPv4 header with another version
    uint32_t bad_checksum = 0;  ///< wrong IPv4 header checksum; the frame still counts as valid
    uint32_t short_pkt = 0;     ///< frames shorter than their headers claim
    uint32_t broadcast = 0;     ///< IPv4 destination 255.255.255.255; the frame still counts as valid
    uint32_t bad_length = 0;    ///< IPv4 total length below the header length
};

/**
 * Reused for one frame after another: the buffer grows to the largest frame and stays. `l3` and `l4` belong
 * to the frame parsed last; new frame bytes reset them until the next `parse`.
 */
class CCapPkt {
 public:
    static constexpr uint32_t kMaxFrame = 65535;  ///< bytes

    uint32_t time_sec = 0;        ///< capture time, seconds
    uint32_t time_nsec = 0;       ///< capture time, nanoseconds
    unsigned char* l3 = nullptr;  ///< IP header within the frame; null until `parse` succeeds
    unsigned char* l4 = nullptr;  ///< transport header; may point to the very end of the frame, with none of
                                  ///< its bytes present

    CCapPkt() = default;
    /** Copies `len` bytes. The frame's length is the low 16 bits of `len`. */
    CCapPkt(const unsigned char* src, unsigned int len);
    CCapPkt(const CCapPkt&) = delete;
    CCapPkt& operator=(const CCapPkt&) = delete;

    unsigned char* GetPktBuffer() const { return data.get(); }
    uint16_t GetPktLen() const { return length; }
    /**
     * Sets the frame's length. A buffer that is too small grows, keeping its bytes; the added bytes are 0.
     */
    void SetPktLen(uint16_t len);

    /**
     * Copies `size` bytes of a new frame into the buffer. Doesn't set the frame's length; see `SetPktLen`.
     */
    void updatePacketData(const unsigned char* src, unsigned int size);
    /**
     * Returns room for a new frame of `size` bytes, so that a reader can fill it directly. The old frame is
     * lost: the length is 0 and the buffer's contents are undefined. Valid until the next change.
     */
    unsigned char* prepare(uint32_t size);
    /** Hands the frame's buffer to the caller without copying, leaving an empty packet. */
    std::unique_ptr<unsigned char[]> release_data();

    /** A deep copy of times and frame, not yet parsed, in a buffer of exactly the frame's length. */
    std::unique_ptr<CCapPkt> clone() const;
    void clone(CCapPkt* dst) const;

    /**
     * Locates `l3` and `l4`. Returns false, with both null, if the frame isn't a complete IPv4 or
     * IPv6 packet.
     */
    bool parse();
    /** Like `parse` for one IP version, counting the checks' findings. `counters` may be null. */
    bool IsValidIpv4Packet(CFiaCounters* counters);
    bool IsValidIpv6Packet(CFiaCounters* counters);

    /** The IP header's version nibble, whatever its value; 0 if the frame is too short or not IP. */
    int GetIpVer() const;
    /** The transport protocol, including after IPv6 extension headers; 59 if there is none, 0 if not IP. */
    int GetProtocol() const;
    // TCP flags. False for other protocols, before `parse`, and if the frame ends before the flags.
    bool IsSYN() const { return has_tcp_flag(2); }
    bool IsFIN() const { return has_tcp_flag(1); }
    bool IsRST() const { return has_tcp_flag(4); }
    /**
     * Address and port: "10.0.0.1:80", "fe80:0:0:0:0:0:0:1,80". Empty if not IP. The port is 0 for protocols
     * without ports, before `parse`, and if the frame ends before it.
     */
    std::string GetSrcAddr() const;
    std::string GetDstAddr() const;

    /** The Internet checksum of `len` bytes: 0 over a header with a correct checksum field. */
    static uint16_t InetChecksum(const unsigned char* bytes, uint16_t len);
    /** Adds the complete 16-bit words of `len` bytes, big-endian, to `sum`, without folding. */
    static uint32_t InetChecksum(const unsigned char* bytes, uint16_t len, uint32_t sum);

    /**
     * Turns an IPv4 frame into an IPv6 frame with the same payload. Returns the low byte of the new length.
     * Returns 0 and leaves the frame untouched if it isn't a complete IPv4 packet or the result would exceed
     * the maximum frame size. An IPv6 frame stays as it is.
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
