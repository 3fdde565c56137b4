#include "utils/net_utils.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <cstdlib>
#include <memory>

#include "utils/exception.h"
#include "utils/unique_fd.h"
#include "utils/unique_file.h"

namespace corvo {
namespace {

constexpr size_t HOSTNAME_LIMIT = 64;
constexpr size_t STAT_LINE_LIMIT = 1024;

struct IfaddrsFreer {
    void operator()(ifaddrs* list) const { freeifaddrs(list); }
};

/**
 * `inet_pton` stops at a NUL byte. Without this check, anything a client puts after one would be accepted.
 */
bool parse_address(int family, const std::string& text, void* out) {
    return text.find('\0') == std::string::npos && inet_pton(family, text.c_str(), out) == 1;
}

std::string address_text(const in_addr& address) {
    return NetUtils::ip2str(ntohl(address.s_addr));
}

uint64_t get_counter(const std::string& ifname, const char* stat) {
    return std::strtoul(NetUtils::get_if_stat(ifname, stat).c_str(), nullptr, 10);
}

}  // namespace

std::string NetUtils::get_src_ip(const std::string& dest, uint16_t port) {
    UniqueFd sock(lift_fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)));
    if (!sock) return "";

    sockaddr_in remote{};
    remote.sin_family = AF_INET;
    remote.sin_port = htons(port);
    remote.sin_addr.s_addr = inet_addr(dest.c_str());
    if (connect(sock.get(), reinterpret_cast<sockaddr*>(&remote), sizeof(remote)) != 0) return "";

    sockaddr_in local{};
    socklen_t len = sizeof(local);
    if (getsockname(sock.get(), reinterpret_cast<sockaddr*>(&local), &len) != 0) return "";
    return address_text(local.sin_addr);
}

std::string NetUtils::ip_to_ifname(const std::string& ip) {
    ifaddrs* first = nullptr;
    if (getifaddrs(&first) != 0) return "";
    std::unique_ptr<ifaddrs, IfaddrsFreer> list(first);

    for (const ifaddrs* entry = list.get(); entry; entry = entry->ifa_next) {
        if (!entry->ifa_addr || !(entry->ifa_flags & IFF_UP)) continue;
        if (entry->ifa_addr->sa_family != AF_INET) continue;
        if (address_text(reinterpret_cast<const sockaddr_in*>(entry->ifa_addr)->sin_addr) == ip)
            return entry->ifa_name;
    }
    return "";
}

std::string NetUtils::get_hostname() {
    std::array<char, HOSTNAME_LIMIT + 1> name{};  // one extra byte: a truncated name isn't NUL-terminated
    return gethostname(name.data(), HOSTNAME_LIMIT) == 0 ? name.data() : "";
}

bool NetUtils::is_valid_ipv4(const std::string& text) {
    in_addr address{};
    return parse_address(AF_INET, text, &address);
}

bool NetUtils::is_valid_ipv6(const std::string& text) {
    in6_addr address{};
    return parse_address(AF_INET6, text, &address);
}

// Avoids printf, which `inet_ntop` uses as well: every TCP request needs the text of its peer.
std::string NetUtils::ip2str(uint32_t ip) {
    std::array<char, INET_ADDRSTRLEN> text{};
    char* out = text.data();
    for (int shift = 24; shift >= 0; shift -= 8) {
        out = std::to_chars(out, text.data() + text.size(), (ip >> shift) & 0xff).ptr;
        if (shift > 0) *out++ = '.';
    }
    return {text.data(), out};
}

uint32_t NetUtils::str2ip(const std::string& text) {
    in_addr address{};
    return parse_address(AF_INET, text, &address) ? ntohl(address.s_addr) : 0;
}

std::string NetUtils::str2ip6(const std::string& text) {
    in6_addr address{};
    if (!parse_address(AF_INET6, text, &address)) return "";
    return {reinterpret_cast<const char*>(address.s6_addr), sizeof(address.s6_addr)};
}

std::string NetUtils::get_if_stat(const std::string& ifname, const std::string& stat) {
    const std::string path = "/sys/class/net/" + ifname + "/statistics/" + stat;
    UniqueFile file(std::fopen(path.c_str(), "re"));
    std::array<char, STAT_LINE_LIMIT> line{};
    if (!file || !std::fgets(line.data(), line.size(), file.get()))
        throw Exception("Failed to access interface stats file " + path);
    return line.data();
}

uint64_t NetUtils::get_if_rx_bytes(const std::string& ifname) {
    return get_counter(ifname, "rx_bytes");
}
uint64_t NetUtils::get_if_tx_bytes(const std::string& ifname) {
    return get_counter(ifname, "tx_bytes");
}
uint64_t NetUtils::get_if_rx_overruns(const std::string& ifname) {
    return get_counter(ifname, "rx_over_errors");
}
uint64_t NetUtils::get_if_rx_errors(const std::string& ifname) {
    return get_counter(ifname, "rx_errors");
}
uint64_t NetUtils::get_if_tx_errors(const std::string& ifname) {
    return get_counter(ifname, "tx_errors");
}
uint64_t NetUtils::get_if_rx_packets(const std::string& ifname) {
    return get_counter(ifname, "rx_packets");
}
uint64_t NetUtils::get_if_tx_packets(const std::string& ifname) {
    return get_counter(ifname, "tx_packets");
}

unsigned int NetUtils::get_if_index(const std::string& ifname) {
    unsigned int index = if_nametoindex(ifname.c_str());
    if (index == 0) throw Exception("interface " + ifname + " doesn't exist!");
    return index;
}

}  // namespace corvo
