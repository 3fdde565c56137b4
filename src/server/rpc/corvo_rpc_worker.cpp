#include "server/rpc/corvo_rpc_worker.h"

#include <sys/epoll.h>

#include <utility>

#include "infra/corvo_logger.h"
#include "infra/corvo_zip.h"
#include "infra/json/corvo_jsonrpc_v2.h"
#include "utils/clock.h"

namespace corvo {

using rpc::RpcRequest;

namespace {

const std::string COMP = "rpc-worker";

}  // namespace

RPCWorker::RPCWorker(std::unique_ptr<rpc::RpcTransport> transport, RpcHandler handler)
    : m_transport(std::move(transport)), m_handler(std::move(handler)) {
    m_fd = m_transport->fd();
    CORVO_LOG(DEBUG, COMP, "RPC client created!, fd = %d", m_fd);
}

RPCWorker::~RPCWorker() {
    CORVO_LOG(DEBUG, COMP, "RPC client DESTROYED!, fd = %d", m_fd);
}

void RPCWorker::note_progress() {
    m_last_progress_ms = monotonic_ms();
}

RPCWorkerTCP::RPCWorkerTCP(std::unique_ptr<rpc::RpcTransport> transport, RpcHandler handler)
    : RPCWorker(std::move(transport), std::move(handler)) {
    note_progress();
}

RPCWorkerTCP::~RPCWorkerTCP() {
    m_fd = m_transport->fd();  // the connection's again, after waiting on another descriptor
    m_transport->disconnect();
}

// The reason for the wake-up doesn't matter: a hang-up shows as a read of 0 or a failed send.
EventRC RPCWorker::do_work(const EventExpireReason&) {
    switch (m_state) {
        case REQ_INIT:
        case REQ_PARTIAL:
            return do_work_req();
        case RESP_SENDING:
        case RESP_PARTIAL: {
            std::string nothing_new;
            return do_work_resp(nothing_new);
        }
        default:
            return done();
    }
}

EventRC RPCWorker::do_work_req() {
    m_request = m_transport->recv_msg();
    if (!m_request) return done();

    std::string response;
    check_request(m_request, response);
    switch (m_state) {
        case REQ_ERROR:
            return m_request->fd < 0 ? done() : do_work_resp(response);
        case REQ_PARTIAL:
            note_progress();
            return m_partial_cb && !m_partial_cb(*this) ? done() : resched(EVENT_STATE_READ);
        case REQ_COMPLETED:
            CORVO_LOG(DEBUG, COMP, "Request: %s", ReqParser::pretty_json_str(m_request->request).c_str());
            if (m_handler) m_handler(m_request->request, response);
            m_state = RESP_SENDING;
            return do_work_resp(response);
        default:
            return done();
    }
}

void RPCWorker::check_request(const std::unique_ptr<RpcRequest>& request, std::string& response) {
    switch (request->rc) {
        case RpcRequest::RC_OK:
            m_state = REQ_COMPLETED;
            return;
        case RpcRequest::RC_IN_PROGRESS:
            m_state = REQ_PARTIAL;
            return;
        case RpcRequest::RC_PEER_CLOSED:
            m_state = REQ_ABORTED;
            return;
        default:
            m_state = REQ_ERROR;
    }
    std::string error = "unknown error during RPC request";
    if (request->rc == RpcRequest::RC_TOO_LONG)
        error = "request size exceeds the maximum allowed size: " +
                std::to_string(m_transport->get_max_msg_size()) + " [B]";
    ReqParser::generate_common_error(response, error);
    CORVO_LOG_TEXT(ERROR, COMP, error);
}

EventRC RPCWorker::do_work_resp(std::string& response) {
    const bool first = !response.empty();
    if (first) {
        m_request->response = std::move(response);  // replies can be large
        if (m_request->compressed) {
            std::string plain = m_request->response;
            rpc::RpcZip::compress(plain, m_request->response);
        }
    }
    uint32_t sent_before = m_request->sent;
    m_request->rc = m_request->reply_int();
    if (first)
        CORVO_LOG(DEBUG, COMP, "Response: %s", ReqParser::pretty_json_str(m_request->response).c_str());

    if (m_request->rc == RpcRequest::RC_IN_PROGRESS) {
        bool in_vain = m_state == RESP_PARTIAL && m_request->sent == sent_before;
        if (m_request->sent > sent_before) note_progress();
        m_request->request = std::string();  // it may be large and the peer slow
        m_state = RESP_PARTIAL;
        return wait_until_writable(!in_vain);
    }
    if (m_request->rc != RpcRequest::RC_OK)
        CORVO_LOG(ERROR, COMP, "Error occurred during serving a response");
    return done();
}

// A peer that has closed its sending side keeps raising every registration in the poller while it still
// reads; if it reads slowly, it would wake us without end. A wake-up without progress reveals this. From
// then on we wait on a separate epoll instance that asks only for room to send and becomes readable when
// there is some.
EventRC RPCWorker::wait_until_writable(bool progressed) {
    if (m_writable) return resched(EVENT_STATE_READ);
    if (progressed) return resched(EVENT_STATE_WRITE);

    UniqueFd epoll_fd(lift_fd(epoll_create1(EPOLL_CLOEXEC)));
    epoll_event room = {};
    room.events = EPOLLOUT;
    if (!epoll_fd || epoll_ctl(epoll_fd.get(), EPOLL_CTL_ADD, m_transport->fd(), &room) != 0)
        return resched(EVENT_STATE_WRITE);
    m_writable = std::move(epoll_fd);
    m_fd = m_writable.get();
    return resched(EVENT_STATE_READ);
}

}  // namespace corvo
