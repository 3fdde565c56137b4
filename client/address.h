#pragma once
// Where a daemon listens: the path of its Unix socket, or IP:PORT.

#include <netinet/in.h>
#include <sys/un.h>

#include <string>
#include <vector>

namespace brumectl {

struct Address {
    bool tcp = false;
    std::string path = {};  ///< of a Unix socket
    sockaddr_in in = {};    ///< for TCP
    std::string text = {};  ///< as it was given, for messages

    /**
     * Dotted IPv4, a colon and a port is TCP; everything else is a path.
     * @throws Usage for an empty text, a port outside 1 to 65535 or a path that no socket can have
     */
    static Address parse(const std::string& text);
    sockaddr_un unix_address() const;
};

/**
 * Where to look for a daemon if nobody said: $BRUMECTL_SOCKET alone if that is set; else the socket of the
 * system's service, then the daemon's own default port on this machine.
 */
std::vector<Address> default_addresses();

}  // namespace brumectl
