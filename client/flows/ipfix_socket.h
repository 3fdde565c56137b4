#pragma once
// The way to an IPFIX collector, over UDP or TCP.

#include <netdb.h>

#include <string>

#include "utils/unique_fd.h"

namespace brumectl::flows {

struct Collector {
    std::string host = {};
    std::string port = {};
    bool tcp = false;

    /** "HOST:PORT" or "[IPv6]:PORT". Throws Usage. */
    static Collector parse(const std::string& text, bool tcp);
    /** "HOST:PORT over TCP". */
    std::string text() const;
};

class IpfixSocket {
 public:
    /** Longest message: over UDP, one that no usual network has to cut into pieces. */
    static uint16_t max_bytes(const Collector& collector) { return collector.tcp ? 16384 : 1400; }

    /** Looks the name up and connects, each address within `timeout_ms`. Throws Failure, Interrupted. */
    IpfixSocket(const Collector& collector, int timeout_ms);

    /** Throws Failure if the message can't be sent in time; over TCP the connection is of no use then.
     * Interrupted. */
    void send(const std::string& message) const;
    /** Whether the collector has closed the connection, or, over UDP, nobody has been there. */
    bool is_gone() const;

 private:
    bool connect_to(const addrinfo& address);

    const int m_timeout_ms;
    corvo::UniqueFd m_fd;
};

}  // namespace brumectl::flows
