#pragma once
// Builds Ethernet frames with correct lengths and checksums, from the payload outwards.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace test {

using Bytes = std::vector<unsigned char>;

Bytes from_hex(std::string_view hex);
Bytes from_text(std::string_view text);

/** Appends numbers in network byte order, texts and blocks. */
class ByteWriter {
 public:
    ByteWriter& u8(uint32_t value) { return number(1, value); }
    ByteWriter& u16(uint32_t value) { return number(2, value); }
    ByteWriter& u32(uint32_t value) { return number(4, value); }
    ByteWriter& number(int width, uint32_t value);
    ByteWriter& text(std::string_view text) { return bytes(from_text(text)); }
    ByteWriter& bytes(const Bytes& block);
    /** Appends `count` bytes of the same value. */
    ByteWriter& fill(size_t count, unsigned char value = 0);
    /** Appends a block preceded by its length, a number of `width` bytes. */
    ByteWriter& sized(int width, const Bytes& block);

    operator const Bytes&() const { return m_bytes; }

 private:
    Bytes m_bytes;
};

constexpr uint32_t ETHER_ARP = 0x0806;
constexpr uint8_t IP_ICMP = 1, IP_TCP = 6, IP_UDP = 17, IP_ICMPV6 = 58;

enum tcp_flag_e : uint8_t { TCP_FIN = 1, TCP_SYN = 2, TCP_RST = 4, TCP_PSH = 8, TCP_ACK = 16 };

/** One direction of a flow, between two IPv4 or two IPv6 addresses, given as text. */
struct Path {
    std::string from;
    std::string to;
    uint16_t from_port = 0;
    uint16_t to_port = 0;
    int vlan = -1;               ///< VLAN number; -1 for no tag
    Bytes ipv6_extensions = {};  ///< types of the extension headers (0, 43, 44, 60), in order
    uint8_t ipv4_options = 0;    ///< number of 4-byte words
    bool is_ipv6() const { return from.find(':') != std::string::npos; }
    Path reversed() const;
};

struct TcpHead {
    uint32_t seq = 0;
    uint32_t ack = 0;
    uint8_t flags = TCP_ACK;
};

Bytes ether_frame(uint32_t ether_type, const Bytes& payload, int vlan = -1);
Bytes ip_frame(const Path& path, uint8_t protocol, const Bytes& segment);
Bytes udp_frame(const Path& path, const Bytes& payload);
Bytes tcp_frame(const Path& path, const TcpHead& head, const Bytes& payload);
/** ICMP or ICMPv6, depending on the addresses: `type`, code 0, then `body` after the checksum. */
Bytes icmp_frame(const Path& path, uint8_t type, const Bytes& body);

/** The frames of both sides of a TCP connection, from its handshake to its end. */
class TcpConversation {
 public:
    explicit TcpConversation(const Path& client_to_server);

    TcpConversation& client(const Bytes& payload) { return send(m_client, m_server, payload); }
    TcpConversation& server(const Bytes& payload) { return send(m_server, m_client, payload); }
    /** Ends the connection and returns all its frames. */
    std::vector<Bytes> close();

 private:
    struct Side {
        Path path;
        uint32_t seq;
    };
    TcpConversation& send(Side& sender, Side& receiver, const Bytes& payload);
    void add(Side& sender, const Side& receiver, int flags, const Bytes& payload);

    Side m_client;
    Side m_server;
    std::vector<Bytes> m_frames;
};

}  // namespace test
