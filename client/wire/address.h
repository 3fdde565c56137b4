#pragma once
// Where a daemon listens: the path of its Unix socket, or an IP address and a port.

#include <sys/socket.h>
#include <sys/un.h>

#include <string>
#include <vector>

namespace brumectl {

struct Address {
    bool tcp = false;
    std::string path = {};     ///< of a Unix socket
    sockaddr_storage ip = {};  ///< for TCP, of either family
    std::string text = {};     ///< as it was given, for messages

    /**
     * Of something to connect to. "IP:PORT", "[IPv6]:PORT", "localhost:PORT" and ":PORT", both this machine,
     * are TCP; everything else is a path. No name is looked up: that could take longer than anybody wants to
     * wait.
     * @throws Usage for an empty text, a port outside 1 to 65535, a path that no socket can have, and for
     * what looks like a name and a port
     */
    static Address parse(const std::string& text);
    /** Of TCP alone, to listen at; ":PORT" is this port of all interfaces. @throws Usage */
    static Address parse_listening(const std::string& text);
    /** Of a Unix socket, whatever its path looks like. @throws Usage for a path that no socket can have */
    static Address of_path(const std::string& path);

    sockaddr_un unix_address() const;
    const sockaddr* ip_address() const { return reinterpret_cast<const sockaddr*>(&ip); }
    socklen_t ip_size() const;
    /** On this machine for sure. */
    bool is_local() const;
};

/**
 * Where to look for a daemon if nobody said: $BRUMECTL_SOCKET alone if that is set; else the socket of the
 * system's service, then the daemon's own default port on this machine.
 */
std::vector<Address> default_addresses();

}  // namespace brumectl
