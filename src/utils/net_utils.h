#pragma once
// Addresses, and the names and counters of network interfaces. Stateless; each call asks the system again. A
// failed lookup returns an empty text or 0; only `get_if_stat`, the counters and `get_if_index` throw.

#include <cstdint>
#include <string>

namespace corvo {

class NetUtils {
 public:
    /** The local IPv4 address that the system would use to reach `dest`. Sends no packet. */
    static std::string get_src_ip(const std::string& dest, uint16_t port);
    /** Name of the interface that is up and has this IPv4 address. */
    static std::string ip_to_ifname(const std::string& ip);
    static std::string get_hostname();

    static bool is_valid_ipv4(const std::string& text);
    static bool is_valid_ipv6(const std::string& text);

    /**
     * Dotted text of a host-order number, and the reverse, which returns 0 if the text isn't an IPv4 address.
     */
    static std::string ip2str(uint32_t ip);
    static uint32_t str2ip(const std::string& text);
    /** The 16 bytes of an IPv6 address. */
    static std::string str2ip6(const std::string& text);

    /**
     * First line of an interface's statistics file, including its newline.
     * Throws corvo::Exception if the interface or counter doesn't exist.
     */
    static std::string get_if_stat(const std::string& ifname, const std::string& stat);
    static uint64_t get_if_rx_bytes(const std::string& ifname);
    static uint64_t get_if_tx_bytes(const std::string& ifname);
    static uint64_t get_if_rx_overruns(const std::string& ifname);
    static uint64_t get_if_rx_errors(const std::string& ifname);
    static uint64_t get_if_tx_errors(const std::string& ifname);
    static uint64_t get_if_rx_packets(const std::string& ifname);
    static uint64_t get_if_tx_packets(const std::string& ifname);

    /** Throws corvo::Exception if the interface doesn't exist. */
    static unsigned int get_if_index(const std::string& ifname);
};

}  // namespace corvo
