#pragma once
// Addresses, and the names and counters of network interfaces. No state; everything asks the system anew.
// Look-ups show failure by an empty text or 0; only `get_if_stat`, the counters and `get_if_index` throw.

#include <cstdint>
#include <string>

namespace corvo {

class NetUtils {
 public:
    /** The local IPv4 address that the system would use towards `dest`. No packet is sent. */
    static std::string get_src_ip(const std::string& dest, uint16_t port);
    /** The interface that is up and holds this IPv4 address. */
    static std::string ip_to_ifname(const std::string& ip);
    static std::string get_hostname();

    static bool is_valid_ipv4(const std::string& text);
    static bool is_valid_ipv6(const std::string& text);

    /** Dotted text of a host-order number, and back: 0 if the text isn't an IPv4 address. */
    static std::string ip2str(uint32_t ip);
    static uint32_t str2ip(const std::string& text);
    /** The 16 bytes of an IPv6 address. */
    static std::string str2ip6(const std::string& text);

    /**
     * First line of an interface's statistics file, with its newline.
     * @throws corvo::Exception if there is no such interface or counter
     */
    static std::string get_if_stat(const std::string& ifname, const std::string& stat);
    static uint64_t get_if_rx_bytes(const std::string& ifname);
    static uint64_t get_if_tx_bytes(const std::string& ifname);
    static uint64_t get_if_rx_overruns(const std::string& ifname);
    static uint64_t get_if_rx_errors(const std::string& ifname);
    static uint64_t get_if_tx_errors(const std::string& ifname);
    static uint64_t get_if_rx_packets(const std::string& ifname);
    static uint64_t get_if_tx_packets(const std::string& ifname);

    /** @throws corvo::Exception if there is no such interface */
    static unsigned int get_if_index(const std::string& ifname);
};

}  // namespace corvo
