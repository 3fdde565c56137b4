#include "server/rpc/corvo_rpc_server.h"

#include <sys/resource.h>

#include <algorithm>
#include <utility>

#include "infra/corvo_logger.h"
#include "infra/corvo_scheduler.h"
#include "server/rpc/corvo_rpc_transport_tcp.h"
#include "server/rpc/corvo_rpc_transport_unix.h"

namespace corvo {

namespace {

const std::string COMP = "rpc-server";

}  // namespace

RPCServer::RPCServer(std::unique_ptr<rpc::RpcTransport> transport, Scheduler* sched, RpcHandler handler)
    : m_transport(std::move(transport)), m_handler(std::move(handler)), m_sched(sched) {
    CORVO_LOG(DEBUG, COMP, "RPC server created!");
}

RPCServer::RPCServer(const std::string& path, Scheduler* sched, RpcHandler handler)
    : RPCServer(std::make_unique<rpc::RpcTransportUnix>(path), sched, std::move(handler)) {}

RPCServer::RPCServer(const std::string& ip, unsigned short port, Scheduler* sched, RpcHandler handler)
    : RPCServer(std::make_unique<rpc::RpcTransportTCP>(ip, port), sched, std::move(handler)) {}

RPCServer::~RPCServer() {
    m_transport->disconnect();
}

void RPCServer::connect() {
    m_transport->connect(true);
    m_fd = m_transport->fd();
    CORVO_LOG(DEBUG, COMP, "Connected!, fd = %d", m_fd);
}

size_t RPCServer::default_max_workers() {
    rlimit limit = {};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return MAX_WORKERS;
    return static_cast<size_t>(std::clamp<rlim_t>(limit.rlim_cur / 2, 1, MAX_WORKERS));
}

EventRC RPCServer::do_work(const EventExpireReason& reason) {
    if (!make_room()) {
        m_resting = true;
        return done();
    }
    std::unique_ptr<rpc::RpcTransport> transport = m_transport->accept_conn();
    if (!transport) {
        CORVO_LOG(ERROR, COMP, "Error detected on channel, exiting");
        return done();
    }
    CORVO_LOG(DEBUG, COMP, "Created new client channel, fd = %d", transport->fd());
    if (transport->fd() == m_fd)
        RPCWorkerUnix(std::move(transport), m_handler).do_work(reason);
    else
        add_worker(std::move(transport));
    return resched(0);
}

void RPCServer::add_worker(std::unique_ptr<rpc::RpcTransport> transport) {
    auto worker = std::make_shared<RPCWorkerTCP>(std::move(transport), m_handler);
    worker->add_completion_cb([weak_self = weak_from_this()](Event*) {
        if (std::shared_ptr<RPCServer> self = weak_self.lock()) self->on_worker_end();
    });
    m_sched->add(worker, EVENT_STATE_READ, 0);
    m_workers.push_back(worker);
}

bool RPCServer::make_room() {
    if (m_workers.size() < m_max_workers) return true;
    std::erase_if(m_workers, [](const auto& worker) { return worker.expired(); });
    if (m_workers.size() < m_max_workers) return true;

    if (!m_bound_reported) {
        m_bound_reported = true;
        CORVO_LOG(WARN, COMP, "all %zu connections are taken, dropping those that send no request",
                  m_max_workers);
    }
    auto waiting = std::ranges::find_if(m_workers, [](const auto& worker) {
        std::shared_ptr<RPCWorkerTCP> alive = worker.lock();
        return alive && alive->awaits_request();
    });
    if (waiting == m_workers.end()) return false;
    m_sched->remove(waiting->lock().get());
    m_workers.erase(waiting);
    return true;
}

void RPCServer::on_worker_end() {
    if (!m_resting) return;
    m_resting = false;
    m_sched->add(shared_from_this(), EVENT_STATE_READ, 0);
}

}  // namespace corvo
