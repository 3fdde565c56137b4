#pragma once
// The name that a client's socket needs to be answered: the daemon sends its replies there.
//
// A name of the kernel's choice leaves nothing behind, but is seen in its own network namespace only. A
// daemon in another one, as in a container that shares its socket's folder, can reach a path.

#include <memory>
#include <string>

#include "client/wire/address.h"

namespace brumectl {

/** A folder of our own that holds one socket; both go with it. */
class PrivateFolder {
 public:
    /** In `parent`. Throws nothing: see `path`. */
    explicit PrivateFolder(const std::string& parent);
    PrivateFolder(const PrivateFolder&) = delete;
    PrivateFolder& operator=(const PrivateFolder&) = delete;
    ~PrivateFolder();

    /** Empty if it couldn't be made; errno tells why. */
    const std::string& path() const { return m_path; }
    std::string socket_path() const { return m_path + "/s"; }

 private:
    std::string m_path;
};

/** Whether the socket that lies there is of our network namespace, as far as that can be told. */
bool is_in_our_network(const std::string& path);

/**
 * Binds a Unix socket to a name where the daemon at `address` can answer. -1, with errno, if that fails;
 * `folder` is where the name lies, if it is a path.
 */
int bind_own_name(int fd, const Address& address, std::unique_ptr<PrivateFolder>& folder);

}  // namespace brumectl
