#pragma once
// The event that listens for clients. A datagram is served to its end within `do_work`; a connection gets a
// worker of its own in the scheduler, so that slow clients don't hold each other up.
//
// The number of connections is bounded, so that no crowd of clients can use up the descriptors of the
// process: at the bound a new connection takes the place of the one that has waited longest without a
// complete request. When all are being answered, listening rests until one of them ends.

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
    /** At least 1. */
    void set_max_workers(size_t count) { m_max_workers = count; }

    std::string get_name() const override { return "RPC Server"; }
    EventRC do_work(const EventExpireReason& reason) override;

 private:
    RPCServer(std::unique_ptr<rpc::RpcTransport> transport, Scheduler* sched, RpcHandler handler);
    bool make_room();
    void add_worker(std::unique_ptr<rpc::RpcTransport> transport);
    void on_worker_end();

    std::unique_ptr<rpc::RpcTransport> m_transport;
    RpcHandler m_handler;
    Scheduler* m_sched;
    size_t m_max_workers = default_max_workers();
    std::vector<std::weak_ptr<RPCWorkerTCP>> m_workers;  ///< in order of arrival, ended ones among them
    bool m_resting = false;
    bool m_bound_reported = false;
};

}  // namespace corvo
