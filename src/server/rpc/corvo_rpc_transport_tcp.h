#pragma once
// TCP: one connection carries one request, which ends at the first line feed, and one reply that ends with
// one. The same class is the listening transport and the transport of an accepted connection.

#include <cstddef>
#include <memory>
#include <string>

#include "server/rpc/corvo_rpc_transport.h"
#include "utils/unique_fd.h"

namespace corvo::rpc {

class RpcTransportTCP : public RpcTransport {
 public:
    /**
     * Limit of a connection's receive buffer: a peer that never sends its line feed must not use up
     * all memory.
     */
    static constexpr unsigned MAX_MSG_SIZE = 64U * 1024 * 1024;

    /** Dotted IPv4. */
    RpcTransportTCP(const std::string& ip, unsigned short port);

    RpcTransport* clone() override;
    void connect(bool force) override;
    void disconnect() override;
    /** A request without a line feed so far is RC_IN_PROGRESS; its bytes are kept for the next call. */
    std::unique_ptr<RpcRequest> recv_msg() override;
    std::unique_ptr<RpcTransport> accept_conn() override;
    unsigned get_max_msg_size() override { return MAX_MSG_SIZE; }
    /** Accepts a connection and reads its first message. The connection stays open until the next call. */
    virtual std::unique_ptr<RpcRequest> accept_and_recv_msg();

 private:
    /** Reads what is available. Returns the last result of `recv`; errno is set accordingly. */
    int read_socket(int fd);
    std::unique_ptr<RpcRequest> recv_msg_int(int fd);
    std::unique_ptr<RpcRequest> msg_term_checks(int fd);
    bool has_line();

    std::string m_ip;  ///< address to bind, or the peer's
    unsigned short m_port;
    std::string m_received;
    size_t m_searched = 0;  ///< leading bytes of `m_received` known to contain no line feed
    UniqueFd m_socket;      ///< empty in a clone
    std::unique_ptr<RpcTransport> m_accepted;
};

class RpcRequestTCP : public RpcRequest {
 public:
    using RpcRequest::RpcRequest;

    rc_e reply_int() override;
};

}  // namespace corvo::rpc
