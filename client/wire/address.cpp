#include "client/wire/address.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>

#include "client/failure.h"

namespace brumectl {

namespace {

constexpr const char* DEFAULTS[] = {"/run/brumecpd/brumecpd.sock", "127.0.0.1:4040"};

bool parse_port(const std::string& text, uint16_t& port) {
    unsigned value = 0;
    auto [end, err] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (err != std::errc() || end != text.data() + text.size() || value == 0 || value > 65535) return false;
    port = static_cast<uint16_t>(value);
    return true;
}

/** False if `host` isn't an IP address. An empty one means `nobody`. `port` is in network order. */
bool parse_host(std::string host, const char* nobody, in_port_t port, sockaddr_storage& ip) {
    if (host.empty()) host = nobody;
    if (host == "localhost") host = "127.0.0.1";
    if (auto* in = reinterpret_cast<sockaddr_in*>(&ip);
        inet_pton(AF_INET, host.c_str(), &in->sin_addr) == 1) {
        in->sin_family = AF_INET;
        in->sin_port = port;
        return true;
    }
    auto* in6 = reinterpret_cast<sockaddr_in6*>(&ip);
    if (host.front() != '[' || host.back() != ']' ||
        inet_pton(AF_INET6, host.substr(1, host.size() - 2).c_str(), &in6->sin6_addr) != 1)
        return false;
    in6->sin6_family = AF_INET6;
    in6->sin6_port = port;
    return true;
}

bool is_number(const std::string& text) {
    return !text.empty() &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

/** UNCLEAR has half of what an address needs; a file can be made clear with a slash. */
enum class Kind { TCP, PATH, UNCLEAR };

Kind parse_tcp(const std::string& text, const char* nobody, Address& address) {
    sockaddr_storage ip = {};
    if (text.empty() || text.find('/') != std::string::npos) return Kind::PATH;
    if (parse_host(text, nobody, 0, ip)) return Kind::UNCLEAR;
    const size_t colon = text.rfind(':');
    if (colon == std::string::npos) return Kind::PATH;
    const std::string port_text = text.substr(colon + 1);
    uint16_t port = 0;
    const bool has_port = parse_port(port_text, port);
    if (!parse_host(text.substr(0, colon), nobody, htons(port), ip))
        return is_number(port_text) ? Kind::UNCLEAR : Kind::PATH;
    if (!has_port) throw Usage("'" + text + "' has no port from 1 to 65535 behind its colon");
    address.tcp = true;
    address.ip = ip;
    address.text = text;
    return Kind::TCP;
}

std::string complaint(const std::string& text) {
    return "'" + text + "' is neither IP:PORT, [IPv6]:PORT, localhost:PORT nor :PORT";
}

}  // namespace

Address Address::parse(const std::string& text) {
    if (text.empty()) throw Usage("the daemon's address is empty; give the path of its socket or IP:PORT");
    Address address;
    const Kind kind = parse_tcp(text, "127.0.0.1", address);
    if (kind == Kind::UNCLEAR) throw Usage(complaint(text) + "; a file of that name is ./" + text);
    return kind == Kind::TCP ? address : of_path(text);
}

Address Address::parse_listening(const std::string& text) {
    Address address;
    if (parse_tcp(text, "0.0.0.0", address) != Kind::TCP) throw Usage(complaint(text));
    return address;
}

Address Address::of_path(const std::string& path) {
    if (path.size() >= sizeof(sockaddr_un::sun_path))
        throw Usage("'" + path + "' is longer than the path of a socket can be (107 bytes)");
    Address address;
    address.path = address.text = path;
    return address;
}

sockaddr_un Address::unix_address() const {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    return address;
}

socklen_t Address::ip_size() const {
    return ip.ss_family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
}

bool Address::is_local() const {
    if (!tcp) return true;
    if (ip.ss_family == AF_INET)
        return ntohl(reinterpret_cast<const sockaddr_in*>(&ip)->sin_addr.s_addr) >> 24 == IN_LOOPBACKNET;
    return IN6_IS_ADDR_LOOPBACK(&reinterpret_cast<const sockaddr_in6*>(&ip)->sin6_addr);
}

std::vector<Address> default_addresses() {
    if (const char* named = std::getenv("BRUMECTL_SOCKET"); named != nullptr && *named != '\0')
        return {Address::parse(named)};
    std::vector<Address> found;
    for (const char* text : DEFAULTS)
        found.push_back(Address::parse(text));
    return found;
}

}  // namespace brumectl
