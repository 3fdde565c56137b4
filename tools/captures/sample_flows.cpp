#include "tools/captures/sample_flows.h"

#include <stdexcept>

namespace test {

namespace {

constexpr const char* CLIENT = "10.1.0.2";
constexpr const char* SERVER = "10.2.0.80";
constexpr const char* CLIENT6 = "fd00:1::2";
constexpr const char* SERVER6 = "fd00:2::80";

/** From a port of the client's own to a server's port, so that no two flows coincide. */
Path to_port(uint16_t port, uint16_t client_port) {
    return {CLIENT, SERVER, client_port, port};
}

Path to_port6(uint16_t port, uint16_t client_port, const Bytes& extensions) {
    return {CLIENT6, SERVER6, client_port, port, -1, extensions};
}

Path with_vlan(Path path) {
    path.vlan = 42;
    return path;
}

Bytes dns_name(const std::string& name) {
    ByteWriter writer;
    for (size_t start = 0; start < name.size();) {
        size_t dot = std::min(name.find('.', start), name.size());
        writer.sized(1, from_text(name.substr(start, dot - start)));
        start = dot + 1;
    }
    return writer.u8(0);
}

/** A query for an address and its answer. */
std::vector<Bytes> dns(const Path& path, const std::string& name) {
    Bytes question = ByteWriter().bytes(dns_name(name)).u16(1).u16(1);
    Bytes query = ByteWriter().u16(0x4242).u16(0x0100).u16(1).u16(0).u16(0).u16(0).bytes(question);
    ByteWriter answer;
    answer.u16(0x4242).u16(0x8180).u16(1).u16(1).u16(0).u16(0).bytes(question);
    answer.u16(0xC00C).u16(1).u16(1).u32(300).sized(2, {10, 2, 0, 80});
    return {udp_frame(path, query), udp_frame(path.reversed(), answer)};
}

std::vector<Bytes> mdns() {
    ByteWriter answer;
    answer.u16(0).u16(0x8400).u16(0).u16(1).u16(0).u16(0);
    answer.bytes(dns_name("printer.local")).u16(1).u16(0x8001).u32(120).sized(2, {10, 1, 0, 9});
    return {udp_frame({"10.1.0.9", "224.0.0.251", 5353, 5353}, answer)};
}

std::vector<Bytes> http(const Path& path) {
    return TcpConversation(path)
        .client(from_text("GET /index.html HTTP/1.1\r\nHost: www.example.net\r\n"
                          "User-Agent: Mozilla/5.0 (X11; Linux x86_64)\r\nAccept: text/html\r\n\r\n"))
        .server(from_text("HTTP/1.1 200 OK\r\nServer: example\r\nContent-Type: text/html\r\n"
                          "Content-Length: 15\r\n\r\n<html>Hi</html>"))
        .close();
}

std::vector<Bytes> tls(const Path& path) {
    return TcpConversation(path)
        .client(tls_client_hello("secure.example.net"))
        .server(tls_server_hello())
        .close();
}

std::vector<Bytes> quic(const Path& path) {
    return {udp_frame(path, quic_initial())};
}

std::vector<Bytes> ssh(const Path& path) {
    return TcpConversation(path)
        .server(from_text("SSH-2.0-OpenSSH_9.2p1 Debian-2\r\n"))
        .client(from_text("SSH-2.0-OpenSSH_9.2p1 Debian-2\r\n"))
        .close();
}

std::vector<Bytes> smtp(const Path& path) {
    return TcpConversation(path)
        .server(from_text("220 mail.example.net ESMTP ready\r\n"))
        .client(from_text("EHLO client.example.net\r\n"))
        .server(from_text("250-mail.example.net\r\n250 SIZE 10240000\r\n"))
        .client(from_text("MAIL FROM:<a@example.net>\r\n"))
        .server(from_text("250 2.1.0 Ok\r\n"))
        .client(from_text("RCPT TO:<b@example.net>\r\n"))
        .server(from_text("250 2.1.5 Ok\r\n"))
        .client(from_text("QUIT\r\n"))
        .server(from_text("221 2.0.0 Bye\r\n"))
        .close();
}

std::vector<Bytes> ntp(const Path& path) {
    Bytes query = ByteWriter().u8(0x23).u8(0).u8(6).u8(0xE9).fill(36).u32(0xE5000000).u32(0x12345678);
    ByteWriter answer;
    answer.u8(0x24).u8(2).u8(6).u8(0xE9).u32(0x100).u32(0x200).bytes({10, 9, 9, 9});
    for (uint32_t i = 0; i < 4; i++)
        answer.u32(0xE5000000).u32(0x12345678 + i);
    return {udp_frame(path, query), udp_frame(path.reversed(), answer)};
}

std::vector<Bytes> dhcp() {
    ByteWriter discover;
    discover.u8(1).u8(1).u8(6).u8(0).u32(0x3903F326).u16(0).u16(0x8000).fill(16);
    discover.bytes({0x02, 0, 0, 0, 0, 0x01}).fill(10 + 64 + 128).u32(0x63825363);
    discover.u8(53).sized(1, {1});
    discover.u8(12).sized(1, from_text("thermostat"));
    discover.u8(55).sized(1, {1, 3, 6, 15});
    discover.u8(255);
    return {udp_frame({"0.0.0.0", "255.255.255.255", 68, 67}, discover)};
}

std::vector<Bytes> sip(const Path& path) {
    const std::string dialog =
        "Via: SIP/2.0/UDP 10.1.0.2:5060;branch=z9hG4bK776asdhds\r\n"
        "From: Alice <sip:alice@example.net>;tag=1928301774\r\n"
        "To: Alice <sip:alice@example.net>\r\n"
        "Call-ID: a84b4c76e66710@10.1.0.2\r\n"
        "CSeq: 1 REGISTER\r\n";
    std::string request = "REGISTER sip:example.net SIP/2.0\r\n" + dialog +
                          "Max-Forwards: 70\r\nContact: <sip:alice@10.1.0.2>\r\nExpires: 3600\r\n"
                          "Content-Length: 0\r\n\r\n";
    std::string answer = "SIP/2.0 200 OK\r\n" + dialog + "Content-Length: 0\r\n\r\n";
    return {udp_frame(path, from_text(request)), udp_frame(path.reversed(), from_text(answer))};
}

std::vector<Bytes> mqtt(const Path& path) {
    ByteWriter connect;
    connect.sized(2, from_text("MQTT")).u8(4).u8(2).u16(60).sized(2, from_text("sensor-17"));
    return TcpConversation(path)
        .client(ByteWriter().u8(0x10).sized(1, connect))
        .server(ByteWriter().u8(0x20).sized(1, {0, 0}))
        .close();
}

/** Request and reply; the types differ between the IP versions. */
std::vector<Bytes> echo(const Path& path, uint8_t request_type, uint8_t reply_type) {
    Bytes body = ByteWriter().u16(0x77).u16(1).text("abcdefghijklmnopqrstuvwabcdefghi");
    return {icmp_frame(path, request_type, body), icmp_frame(path.reversed(), reply_type, body)};
}

std::vector<SampleFlow> make_flows() {
    return {
        {"dns", "DNS", dns(to_port(53, 40001), "www.example.net")},
        {"http", "HTTP", http(to_port(80, 40002))},
        {"tls", "TLS", tls(to_port(443, 40003))},
        {"quic", "QUIC", quic(to_port(443, 40004))},
        {"ssh", "SSH", ssh(to_port(22, 40005))},
        {"ntp", "NTP", ntp(to_port(123, 40006))},
        {"dhcp", "DHCP", dhcp()},
        {"sip", "SIP", sip(to_port(5060, 5060))},
        {"mqtt", "MQTT", mqtt(to_port(1883, 40007))},
        {"smtp", "SMTP", smtp(to_port(25, 40008))},
        {"mdns", "MDNS", mdns()},
        {"icmp", "ICMP", echo(to_port(0, 0), 8, 0)},
        {"icmpv6", "ICMPV6", echo(to_port6(0, 0, {}), 128, 129)},
        {"dns-ipv6-hop-by-hop", "DNS", dns(to_port6(53, 40009, {0}), "six.example.net")},
        {"http-ipv6-destination", "HTTP", http(to_port6(80, 40010, {0, 60}))},
        {"tls-vlan", "TLS", tls(with_vlan(to_port(443, 40011)))},
    };
}

}  // namespace

const std::vector<SampleFlow>& sample_flows() {
    static const std::vector<SampleFlow> flows = make_flows();
    return flows;
}

const SampleFlow& sample_flow(const std::string& name) {
    for (const SampleFlow& flow : sample_flows())
        if (flow.name == name) return flow;
    throw std::invalid_argument("no sample flow is called " + name);
}

std::vector<Bytes> sample_frames() {
    std::vector<Bytes> frames;
    for (const SampleFlow& flow : sample_flows())
        frames.insert(frames.end(), flow.frames.begin(), flow.frames.end());
    return frames;
}

}  // namespace test
