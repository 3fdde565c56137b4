#pragma once
// The two interfaces between the RPC server and a byte transport. A transport gives requests, a request takes
// its own reply back. The server and its workers know nothing else of sockets.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace corvo::rpc {

/** One message received from a client, and the state of its reply. */
class RpcRequest {
 public:
    enum rc_e : int {
        RC_OK = 0,           ///< request: complete; reply: all sent
        RC_TOO_LONG = 1,     ///< request: longer than the transport's `get_max_msg_size`
        RC_ERROR = 2,        ///< receiving or sending failed
        RC_IN_PROGRESS = 3,  ///< request: more to come; reply: not all sent, call again
        RC_PEER_CLOSED = 4,  ///< request: the peer closed the connection
    };

    RpcRequest(int reply_fd, rc_e state) : rc(state), fd(reply_fd) {}
    RpcRequest(const RpcRequest&) = delete;
    RpcRequest& operator=(const RpcRequest&) = delete;
    virtual ~RpcRequest() = default;

    /** Sends what is left of `response` without blocking. RC_OK, RC_IN_PROGRESS or RC_ERROR (logged). */
    virtual rc_e reply_int() = 0;

    /** Takes over the received bytes, unpacked where they are a packed message. */
    void set_text(std::string&& received);

    std::string request;
    std::string response;
    rc_e rc;
    bool compressed = false;  ///< the request came packed, so the reply is to be packed as well
    uint32_t sent = 0;        ///< bytes of `response` that are out
    int fd;                   ///< socket to answer on, not owned; -1: nobody can be answered
};

class RpcTransport {
 public:
    RpcTransport() = default;
    RpcTransport(const RpcTransport&) = delete;
    RpcTransport& operator=(const RpcTransport&) = delete;

    /** A transport on the same socket that doesn't own it. The caller owns the result. */
    virtual RpcTransport* clone() = 0;
    /**
     * Opens the server's socket; `force` removes what is in its way.
     * @throws corvo::Exception, and nothing is left open
     */
    virtual void connect(bool force) = 0;
    /** Closes the socket if this transport owns it; `fd()` is -1 afterwards. */
    virtual void disconnect() = 0;
    /** Never blocks. Null: there was nothing to read after all. */
    virtual std::unique_ptr<RpcRequest> recv_msg() = 0;
    /** The transport of the next client; null when there is none. Without connections: a clone. */
    virtual std::unique_ptr<RpcTransport> accept_conn() = 0;
    virtual ~RpcTransport() = default;
    /** In bytes. */
    virtual unsigned get_max_msg_size() = 0;

    /** -1 while closed. */
    int fd() const { return m_fd; }
    /** Bytes of memory that an unfinished request takes up between two calls of `recv_msg`. */
    size_t held_bytes() const { return m_held_bytes; }

 protected:
    int m_fd = -1;
    size_t m_held_bytes = 0;
};

}  // namespace corvo::rpc
