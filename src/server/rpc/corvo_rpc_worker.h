#pragma once
// Carries one request from its first byte to the last byte of its reply without ever blocking the scheduler.
// It doesn't know JSON-RPC methods: it passes the text to a handler and sends what comes back.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "infra/corvo_event.h"
#include "server/rpc/corvo_rpc_transport.h"
#include "utils/unique_fd.h"

namespace corvo {

using RpcHandler = std::function<void(const std::string& request, std::string& response)>;

class RPCWorker : public Event {
 public:
    enum state_e : int {
        REQ_INIT = 0,
        REQ_PARTIAL = 1,    ///< part of a request read, waiting for more
        REQ_ERROR = 2,      ///< the request can't be served; an error reply is going out
        REQ_COMPLETED = 3,  ///< the whole request has arrived
        REQ_ABORTED = 4,    ///< the peer went away during the request
        RESP_SENDING = 5,   ///< the handler has run; the reply is going out
        RESP_PARTIAL = 6,   ///< part of the reply sent, waiting until the socket can take more
    };

    RPCWorker(std::unique_ptr<rpc::RpcTransport> transport, RpcHandler handler);
    ~RPCWorker() override;

    std::string get_name() const override { return "RPC Worker"; }
    /** Exceptions of the handler pass through. */
    EventRC do_work(const EventExpireReason& reason) override;

    /** Runs after a read that left the request unfinished. False means: close the connection. */
    void set_partial_cb(std::function<bool(RPCWorker&)> cb) { m_partial_cb = std::move(cb); }
    /** Bytes of memory that an unfinished request occupies. */
    size_t held_bytes() const { return m_transport->held_bytes(); }
    /** When a byte was last received or sent, or the connection was accepted; CLOCK_MONOTONIC. */
    uint64_t last_progress_ms() const { return m_last_progress_ms; }

 protected:
    void note_progress();

    std::unique_ptr<rpc::RpcTransport> m_transport;

 private:
    EventRC do_work_req();
    /** Takes over `response` on the first call for a request; later calls pass an empty one. */
    EventRC do_work_resp(std::string& response);
    /** Sets the state and, for a request that can't be served, `response` to the error text. */
    void check_request(const std::unique_ptr<rpc::RpcRequest>& request, std::string& response);
    EventRC wait_until_writable(bool progressed);

    RpcHandler m_handler;
    std::function<bool(RPCWorker&)> m_partial_cb;
    uint64_t m_last_progress_ms = 0;  ///< maintained for connections only
    state_e m_state = REQ_INIT;
    std::unique_ptr<rpc::RpcRequest> m_request;
    UniqueFd m_writable;  ///< see wait_until_writable
};

/** Serves one datagram; lives no longer than its `do_work`. */
class RPCWorkerUnix : public RPCWorker {
 public:
    using RPCWorker::RPCWorker;
};

/** Serves one connection and closes it in its destructor. */
class RPCWorkerTCP : public RPCWorker {
 public:
    RPCWorkerTCP(std::unique_ptr<rpc::RpcTransport> transport, RpcHandler handler);
    ~RPCWorkerTCP() override;
};

}  // namespace corvo
