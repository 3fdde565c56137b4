#pragma once
// Unix datagrams: one datagram is one request, another is its reply, and there are no connections. The
// server's transport owns the socket and its path; each datagram is read through a clone.

#include <sys/socket.h>
#include <sys/types.h>
#include <sys/un.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "server/rpc/corvo_rpc_transport.h"
#include "utils/unique_fd.h"

namespace corvo::rpc {

class RpcTransportUnix : public RpcTransport {
 public:
    static constexpr uint32_t MAX_MSG_SIZE = 60000;

    /** A path too long for a socket address is silently truncated. */
    explicit RpcTransportUnix(const std::string& path);

    RpcTransport* clone() override;
    void connect(bool force) override;
    void disconnect() override;
    std::unique_ptr<RpcRequest> recv_msg() override;
    std::unique_ptr<RpcTransport> accept_conn() override;
    unsigned get_max_msg_size() override { return m_max_msg_size; }

 private:
    /** What a transport shares with its clones. */
    struct Shared {
        explicit Shared(const std::string& socket_path) : path(socket_path) {}

        std::string path;
        std::unique_ptr<char[]>
            buffer;  ///< of the maximum message size; its contents are valid for one read only
    };

    RpcTransportUnix(std::shared_ptr<Shared> shared, int fd);
    void remove_stale(const char* bound_path) const;
    bool open_to_all(const char* bound_path);

    uint32_t m_max_msg_size = MAX_MSG_SIZE;
    std::shared_ptr<Shared> m_shared;
    UniqueFd m_socket;                ///< empty in a clone
    std::pair<dev_t, ino_t> m_bound;  ///< identifies the socket's entry in its folder
};

class RpcRequestUnix : public RpcRequest {
 public:
    explicit RpcRequestUnix(int reply_fd) : RpcRequest(reply_fd, RC_OK) {}

    /** One datagram, never resumed: a reply that exceeds the socket's limits is lost. */
    rc_e reply_int() override;

    sockaddr_un m_sender = {};
    socklen_t m_sender_len = sizeof(m_sender);
};

}  // namespace corvo::rpc
