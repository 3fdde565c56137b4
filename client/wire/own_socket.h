#pragma once
// The name that a client's socket needs to get replies: the daemon sends them there.
//
// A name chosen by the kernel leaves nothing behind, but is visible in its own network namespace only. A
// daemon in another namespace, as in a container that shares its socket's folder, can reach a path.

#include <memory>
#include <string>

#include "client/wire/address.h"

namespace brumectl {

/** A private folder that holds one socket; both are removed with it. */
class PrivateFolder {
 public:
    /** Creates it in `parent`. Doesn't throw: see `path`. */
    explicit PrivateFolder(const std::string& parent);
    PrivateFolder(const PrivateFolder&) = delete;
    PrivateFolder& operator=(const PrivateFolder&) = delete;
    ~PrivateFolder();

    /** Empty if it couldn't be created; errno tells why. */
    const std::string& path() const { return m_path; }
    std::string socket_path() const { return m_path + "/s"; }

 private:
    std::string m_path;
};

/** Whether the socket at `path` belongs to our network namespace, as far as that can be determined. */
bool is_in_our_network(const std::string& path);

/**
 * Binds a Unix socket to a name that the daemon at `address` can reply to. Returns -1 with errno set on
 * failure; `folder` is set if the name is a path.
 */
int bind_own_name(int fd, const Address& address, std::unique_ptr<PrivateFolder>& folder);

}  // namespace brumectl
