#pragma once
// The event that listens for clients. A datagram is served to its end within `do_work`; a connection gets a
// worker of its own in the scheduler, so that slow clients don't hold each other up.
//
// Connections are bounded in number, so that no crowd of clients can use up the descriptors of the process.
// At the bound a new connection takes the place of the one that has neither sent nor read anything for the
// longest, once that is a second; until then it waits in the backlog. The memory of unfinished requests is
// bounded, too: above the bound, the connection that holds most of it is closed.

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "infra/corvo_event.h"
#include "server/rpc/corvo_rpc_transport.h"
#include "server/rpc/corvo_rpc_worker.h"

namespace corvo {

class Scheduler;

/** To be owned by a `shared_ptr` outside the scheduler, which drops it while listening rests. */
class RPCServer : public Event, public std::enable_shared_from_this<RPCServer> {
 public:
    static constexpr size_t MAX_WORKERS = 256;
    /** All unfinished requests together. */
    static constexpr size_t MAX_HELD_BYTES = 256UL * 1024 * 1024;
    /** How long a connection at the bound may stand still before it has to give way. */
    static constexpr unsigned PATIENCE_MS = 1000;

    /** Unix datagrams on `path`. `sched` must outlive the server. */
    RPCServer(const std::string& path, Scheduler* sched, RpcHandler handler);
    /** TCP on a dotted IPv4 address. */
    RPCServer(const std::string& ip, unsigned short port, Scheduler* sched, RpcHandler handler);
    /** Closes the socket. Workers that still run are not affected. */
    ~RPCServer() override;

    /** Opens the socket. @throws corvo::Exception */
    void connect();
    /** MAX_WORKERS, or half of the descriptors that the process may have where that is less. */
    static size_t default_max_workers();
    /** `workers` at least 1. */
    void set_bounds(size_t workers, unsigned patience_ms, size_t held_bytes);

    std::string get_name() const override { return "RPC Server"; }
    EventRC do_work(const EventExpireReason& reason) override;

 private:
    RPCServer(std::unique_ptr<rpc::RpcTransport> transport, Scheduler* sched, RpcHandler handler);
    /** 0: there is room for one more connection. Else look again after so many ms. */
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
    std::vector<std::weak_ptr<RPCWorkerTCP>> m_workers;  ///< in order of arrival, ended ones among them
    bool m_resting = false;
    bool m_wake_is_due = false;
    bool m_bound_reported = false;
};

}  // namespace corvo
