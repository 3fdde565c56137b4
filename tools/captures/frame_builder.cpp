#include "tools/captures/frame_builder.h"

#include <arpa/inet.h>

#include <stdexcept>

namespace test {

namespace {

constexpr uint32_t ETHER_IPV4 = 0x0800, ETHER_IPV6 = 0x86DD, ETHER_VLAN = 0x8100;
constexpr uint8_t TTL = 64;

Bytes address(const std::string& text) {
    Bytes bytes(text.find(':') == std::string::npos ? 4 : 16);
    if (inet_pton(bytes.size() == 4 ? AF_INET : AF_INET6, text.c_str(), bytes.data()) != 1)
        throw std::invalid_argument("not an address: " + text);
    return bytes;
}

uint32_t checksum(const Bytes& bytes) {
    uint32_t sum = 0;
    for (size_t i = 0; i < bytes.size(); i++)
        sum += i % 2 == 0 ? bytes[i] << 8U : bytes[i];
    while (sum >> 16)
        sum = (sum >> 16) + (sum & 0xFFFF);
    return ~sum & 0xFFFF;
}

void put_checksum(Bytes& segment, size_t offset, uint32_t sum) {
    segment[offset] = static_cast<unsigned char>(sum >> 8);
    segment[offset + 1] = static_cast<unsigned char>(sum);
}

/** Covers the segment and the pseudo header, whose sum is the same for both IP versions. */
uint32_t transport_checksum(const Path& path, uint8_t protocol, const Bytes& segment) {
    ByteWriter covered;
    covered.bytes(address(path.from)).bytes(address(path.to));
    covered.u32(static_cast<uint32_t>(segment.size())).u32(protocol).bytes(segment);
    return checksum(covered);
}

Bytes ipv4_packet(const Path& path, uint8_t protocol, const Bytes& segment) {
    uint32_t header_size = 20 + 4U * path.ipv4_options;
    ByteWriter writer;
    writer.u8(0x40 | header_size / 4).u8(0).u16(header_size + static_cast<uint32_t>(segment.size()));
    writer.u16(0x1234).u16(0x4000).u8(TTL).u8(protocol).u16(0);
    writer.bytes(address(path.from)).bytes(address(path.to));
    writer.fill(header_size - 20, 1);  // options that do nothing
    Bytes packet = writer;
    put_checksum(packet, 10, checksum(packet));
    packet.insert(packet.end(), segment.begin(), segment.end());
    return packet;
}

Bytes ipv6_packet(const Path& path, uint8_t protocol, const Bytes& segment) {
    ByteWriter payload;
    for (size_t i = 0; i < path.ipv6_extensions.size(); i++) {
        bool is_last = i + 1 == path.ipv6_extensions.size();
        // 8 bytes: next header, length 0 (no further 8-byte units), and an option that pads the rest.
        payload.u8(is_last ? protocol : path.ipv6_extensions[i + 1]).u8(0).u8(1).u8(4).u32(0);
    }
    payload.bytes(segment);
    ByteWriter writer;
    writer.u32(0x60000000).u16(static_cast<uint32_t>(static_cast<const Bytes&>(payload).size()));
    writer.u8(path.ipv6_extensions.empty() ? protocol : path.ipv6_extensions[0]).u8(TTL);
    writer.bytes(address(path.from)).bytes(address(path.to)).bytes(payload);
    return writer;
}

}  // namespace

Bytes from_hex(std::string_view hex) {
    Bytes bytes;
    for (size_t i = 0; i + 2 <= hex.size(); i += 2)
        bytes.push_back(static_cast<unsigned char>(std::stoul(std::string(hex.substr(i, 2)), nullptr, 16)));
    return bytes;
}

Bytes from_text(std::string_view text) {
    return {text.begin(), text.end()};
}

ByteWriter& ByteWriter::number(int width, uint32_t value) {
    for (int shift = 8 * (width - 1); shift >= 0; shift -= 8)
        m_bytes.push_back(static_cast<unsigned char>(value >> shift));
    return *this;
}

ByteWriter& ByteWriter::bytes(const Bytes& block) {
    m_bytes.insert(m_bytes.end(), block.begin(), block.end());
    return *this;
}

ByteWriter& ByteWriter::fill(size_t count, unsigned char value) {
    m_bytes.insert(m_bytes.end(), count, value);
    return *this;
}

ByteWriter& ByteWriter::sized(int width, const Bytes& block) {
    return number(width, static_cast<uint32_t>(block.size())).bytes(block);
}

Path Path::reversed() const {
    Path back = *this;
    std::swap(back.from, back.to);
    std::swap(back.from_port, back.to_port);
    return back;
}

Bytes ether_frame(uint32_t ether_type, const Bytes& payload, int vlan) {
    ByteWriter writer;
    writer.bytes({0x02, 0, 0, 0, 0, 0x02}).bytes({0x02, 0, 0, 0, 0, 0x01});
    if (vlan >= 0) writer.u16(ETHER_VLAN).u16(static_cast<uint32_t>(vlan));
    return writer.u16(ether_type).bytes(payload);
}

Bytes ip_frame(const Path& path, uint8_t protocol, const Bytes& segment) {
    if (path.is_ipv6()) return ether_frame(ETHER_IPV6, ipv6_packet(path, protocol, segment), path.vlan);
    return ether_frame(ETHER_IPV4, ipv4_packet(path, protocol, segment), path.vlan);
}

Bytes udp_frame(const Path& path, const Bytes& payload) {
    ByteWriter writer;
    writer.u16(path.from_port).u16(path.to_port).u16(static_cast<uint32_t>(8 + payload.size())).u16(0);
    Bytes segment = writer.bytes(payload);
    uint32_t sum = transport_checksum(path, IP_UDP, segment);
    put_checksum(segment, 6, sum == 0 ? 0xFFFF : sum);  // 0 would mean that there is no checksum
    return ip_frame(path, IP_UDP, segment);
}

Bytes tcp_frame(const Path& path, const TcpHead& head, const Bytes& payload) {
    ByteWriter writer;
    writer.u16(path.from_port).u16(path.to_port).u32(head.seq).u32(head.ack);
    writer.u8(0x50).u8(head.flags).u16(64240).u16(0).u16(0);
    Bytes segment = writer.bytes(payload);
    put_checksum(segment, 16, transport_checksum(path, IP_TCP, segment));
    return ip_frame(path, IP_TCP, segment);
}

Bytes icmp_frame(const Path& path, uint8_t type, const Bytes& body) {
    Bytes segment = ByteWriter().u8(type).u8(0).u16(0).bytes(body);
    put_checksum(segment, 2,
                 path.is_ipv6() ? transport_checksum(path, IP_ICMPV6, segment) : checksum(segment));
    return ip_frame(path, path.is_ipv6() ? IP_ICMPV6 : IP_ICMP, segment);
}

TcpConversation::TcpConversation(const Path& client_to_server)
    : m_client{client_to_server, 1000}, m_server{client_to_server.reversed(), 5000} {
    m_frames.push_back(tcp_frame(m_client.path, {m_client.seq++, 0, TCP_SYN}, {}));
    add(m_server, m_client, TCP_SYN | TCP_ACK, {});
    m_server.seq++;
    add(m_client, m_server, TCP_ACK, {});
}

TcpConversation& TcpConversation::send(Side& sender, Side& receiver, const Bytes& payload) {
    add(sender, receiver, TCP_PSH | TCP_ACK, payload);
    add(receiver, sender, TCP_ACK, {});
    return *this;
}

void TcpConversation::add(Side& sender, const Side& receiver, int flags, const Bytes& payload) {
    TcpHead head = {sender.seq, receiver.seq, static_cast<uint8_t>(flags)};
    m_frames.push_back(tcp_frame(sender.path, head, payload));
    sender.seq += static_cast<uint32_t>(payload.size());
}

std::vector<Bytes> TcpConversation::close() {
    add(m_client, m_server, TCP_FIN | TCP_ACK, {});
    m_client.seq++;
    add(m_server, m_client, TCP_FIN | TCP_ACK, {});
    m_server.seq++;
    add(m_client, m_server, TCP_ACK, {});
    return std::move(m_frames);
}

}  // namespace test
