#include "server/rpc/corvo_rpc_server.h"

#include <sys/resource.h>

#include <algorithm>
#include <utility>

#include "infra/corvo_logger.h"
#include "infra/corvo_scheduler.h"
#include "server/rpc/corvo_rpc_transport_tcp.h"
#include "server/rpc/corvo_rpc_transport_unix.h"
#include "utils/clock.h"

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

void RPCServer::set_bounds(size_t workers, unsigned patience_ms, size_t held_bytes) {
    m_max_workers = workers;
    m_patience_ms = patience_ms;
    m_max_held_bytes = held_bytes;
}

EventRC RPCServer::do_work(const EventExpireReason& reason) {
    if (unsigned wait_ms = make_room(); wait_ms != 0) {
        rest(wait_ms);
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
        if (std::shared_ptr<RPCServer> self = weak_self.lock()) self->listen_again();
    });
    worker->set_partial_cb([weak_self = weak_from_this()](const RPCWorker& grown) {
        std::shared_ptr<RPCServer> self = weak_self.lock();
        return !self || self->bound_memory(grown);
    });
    m_sched->add(worker, EVENT_STATE_READ, 0);
    m_workers.push_back(worker);
}

unsigned RPCServer::make_room() {
    if (m_workers.size() < m_max_workers) return 0;
    std::erase_if(m_workers, [](const auto& worker) { return worker.expired(); });
    if (m_workers.size() < m_max_workers) return 0;

    if (!m_bound_reported) {
        m_bound_reported = true;
        CORVO_LOG(WARN, COMP, "all %zu connections are taken, dropping those that stand still",
                  m_max_workers);
    }
    auto stillest = std::ranges::min_element(
        m_workers, {}, [](const auto& worker) { return worker.lock()->last_progress_ms(); });
    const uint64_t still_ms = monotonic_ms() - stillest->lock()->last_progress_ms();
    if (still_ms < m_patience_ms) return static_cast<unsigned>(m_patience_ms - still_ms);
    drop(stillest);
    return 0;
}

bool RPCServer::bound_memory(const RPCWorker& grown) {
    // As long as nobody holds more than an equal share, the total is within the bound.
    if (grown.held_bytes() <= m_max_held_bytes / m_max_workers) return true;

    std::erase_if(m_workers, [](const auto& worker) { return worker.expired(); });
    auto held = [](const auto& worker) { return worker.lock()->held_bytes(); };
    size_t total = 0;
    for (const auto& worker : m_workers)
        total += held(worker);
    while (total > m_max_held_bytes) {
        auto largest = std::ranges::max_element(m_workers, {}, held);
        CORVO_LOG(WARN, COMP, "unfinished requests take up %zu bytes, closing the connection that holds %zu",
                  total, held(*largest));
        if (largest->lock().get() == &grown) return false;
        total -= held(*largest);
        drop(largest);
    }
    return true;
}

void RPCServer::drop(std::vector<std::weak_ptr<RPCWorkerTCP>>::iterator worker) {
    m_sched->remove(worker->lock().get());
    m_workers.erase(worker);
}

/** The socket stays readable while a client waits in the backlog, so it can't stay in the poller. */
void RPCServer::rest(unsigned ms) {
    class Wake : public Task {
     public:
        explicit Wake(std::weak_ptr<RPCServer> server) : m_server(std::move(server)) {}
        int execute() override {
            std::shared_ptr<RPCServer> server = m_server.lock();
            if (!server) return -1;
            server->m_wake_is_due = false;
            server->listen_again();
            return -1;
        }
        std::string get_name() const override { return "RPC Server"; }

     private:
        std::weak_ptr<RPCServer> m_server;
    };
    m_resting = true;
    // An earlier wake-up is never too late: as time passes, the longest idle period can only have
    // started later.
    if (std::exchange(m_wake_is_due, true)) return;
    m_sched->add(std::make_shared<Wake>(weak_from_this()), ms);
}

void RPCServer::listen_again() {
    if (!m_resting) return;
    m_resting = false;
    m_sched->add(shared_from_this(), EVENT_STATE_READ, 0);
}

}  // namespace corvo
