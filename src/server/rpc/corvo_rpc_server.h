#pragma once
// The event that listens for clients. A datagram is served completely within `do_work`; a connection gets its
// own worker in the scheduler, so that slow clients don't hold each other up.
//
// The number of connections is limited, so that no crowd of clients can use up the process's descriptors. At
// the limit, a new connection replaces the one that has been idle longest, once that has been a second; until
// then it waits in the backlog. The memory of unfinished requests is limited as well: above the limit, the
// connection that holds the most is closed.

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "infra/corvo_event.h"
#include "server/rpc/corvo_rpc_transport.h"
#include "server/rpc/corvo_rpc_worker.h"

namespace corvo {

class Scheduler;

/** Must be owned by a `shared_ptr` outside the scheduler, which drops it while listening is paused. */
class RPCServer : public Event, public std::enable_shared_from_this<RPCServer> {
 public:
    static constexpr size_t MAX_WORKERS = 256;
    /** Limit for all unfinished requests together. */
    static constexpr size_t MAX_HELD_BYTES = 256UL * 1024 * 1024;
    /** How long a connection may be idle before it can be replaced. */
    static constexpr unsigned PATIENCE_MS = 1000;

    /** Unix datagrams on `path`. `sched` must outlive the server. */
    RPCServer(const std::string& path, Scheduler* sched, RpcHandler handler);
    /** TCP on a dotted IPv4 address. */
    RPCServer(const std::string& ip, unsigned short port, Scheduler* sched, RpcHandler handler);
    /** Closes the socket. Running workers aren't affected. */
    ~RPCServer() override;

    /** Opens the socket. Throws corvo::Exception. */
    void connect();
    /** MAX_WORKERS, or half of the process's descriptor limit if that is less. */
    static size_t default_max_workers();
    /** `workers` must be at least 1. */
    void set_bounds(size_t workers, unsigned patience_ms, size_t held_bytes);

    std::string get_name() const override { return "RPC Server"; }
    EventRC do_work(const EventExpireReason& reason) override;

 private:
    RPCServer(std::unique_ptr<rpc::RpcTransport> transport, Scheduler* sched, RpcHandler handler);
    /**
     * Returns 0 if there is room for one more connection, else the milliseconds after which to check again.
     */
    unsigned make_room();
    void add_worker(std::unique_ptr<rpc::RpcTransport> transport);
    /** Closes the largest unfinished requests until the rest fits. False if `grown` itself has to go. */
    bool bound_memory(const RPCWorker& grown);
    void drop(std::vector<std::weak_ptr<RPCWorkerTCP>>::iterator worker);
    void rest(unsigned ms);
    void listen_again();

    std::unique_ptr<rpc::RpcTransport> m_transport;
    RpcHandler m_handler;
    Scheduler* m_sched;
    size_t m_max_workers = default_max_workers();
    unsigned m_patience_ms = PATIENCE_MS;
    size_t m_max_held_bytes = MAX_HELD_BYTES;
    std::vector<std::weak_ptr<RPCWorkerTCP>> m_workers;  ///< in order of arrival, including ended ones
    bool m_resting = false;
    bool m_wake_is_due = false;
    bool m_bound_reported = false;
};

}  // namespace corvo
