#pragma once
// The two interfaces between the RPC server and a byte transport. A transport yields requests; a request
// sends its own reply. The server and its workers know nothing else about sockets.

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

    /** Sends the rest of `response` without blocking. Returns RC_OK, RC_IN_PROGRESS or RC_ERROR (logged). */
    virtual rc_e reply_int() = 0;

    /** Takes the received bytes, unpacking a compressed message. */
    void set_text(std::string&& received);

    std::string request;
    std::string response;
    rc_e rc;
    bool compressed = false;  ///< the request was compressed, so the reply has to be as well
    uint32_t sent = 0;        ///< bytes of `response` already sent
    int fd;                   ///< socket for the reply, not owned; -1 if nobody can be answered
};

class RpcTransport {
 public:
    RpcTransport() = default;
    RpcTransport(const RpcTransport&) = delete;
    RpcTransport& operator=(const RpcTransport&) = delete;

    /** A transport on the same socket that doesn't own it. The caller owns the result. */
    virtual RpcTransport* clone() = 0;
    /**
     * Opens the server's socket; `force` removes whatever is in its way.
     * Throws corvo::Exception, leaving nothing open.
     */
    virtual void connect(bool force) = 0;
    /** Closes the socket if this transport owns it; `fd()` is -1 afterwards. */
    virtual void disconnect() = 0;
    /** Never blocks. Null if there was nothing to read after all. */
    virtual std::unique_ptr<RpcRequest> recv_msg() = 0;
    /** The next client's transport; null if there is none. A connectionless transport returns a clone. */
    virtual std::unique_ptr<RpcTransport> accept_conn() = 0;
    virtual ~RpcTransport() = default;
    /** In bytes. */
    virtual unsigned get_max_msg_size() = 0;

    /** -1 while closed. */
    int fd() const { return m_fd; }
    /** Bytes of memory that an unfinished request occupies between two calls of `recv_msg`. */
    size_t held_bytes() const { return m_held_bytes; }

 protected:
    int m_fd = -1;
    size_t m_held_bytes = 0;
};

}  // namespace corvo::rpc
