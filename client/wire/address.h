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
    sockaddr_storage ip = {};  ///< for TCP, IPv4 or IPv6
    std::string text = {};     ///< as given, for messages

    /**
     * Parses an address to connect to. "IP:PORT", "[IPv6]:PORT", and "localhost:PORT" and ":PORT" for this
     * machine, are TCP; everything else is a path. Names aren't looked up, as that could take too long.
     * Throws Usage for an empty text, a port outside 1 to 65535, a path that no socket can have, and for what
     * looks like a name and a port.
     */
    static Address parse(const std::string& text);
    /** Parses a TCP address to listen on; ":PORT" means this port on all interfaces. Throws Usage. */
    static Address parse_listening(const std::string& text);
    /**
     * A Unix socket's address, whatever its path looks like. Throws Usage for a path that no socket can have.
     */
    static Address of_path(const std::string& path);

    sockaddr_un unix_address() const;
    const sockaddr* ip_address() const { return reinterpret_cast<const sockaddr*>(&ip); }
    socklen_t ip_size() const;
    /** Whether the address is certainly on this machine. */
    bool is_local() const;
};

/**
 * Where to look for a daemon if no address is given: only $BRUMECTL_SOCKET if that is set; otherwise the
 * socket of the system's service, then the daemon's default port on this machine.
 */
std::vector<Address> default_addresses();

}  // namespace brumectl
