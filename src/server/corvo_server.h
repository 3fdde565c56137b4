#pragma once
// The object that owns the daemon: scheduler, RPC listener, command table, engine and watchdog. `main`
// creates one on its stack, calls `run`, and destroys it. All other code reaches it through `g_ptr`.

#include <csignal>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "infra/corvo_rpc_command.h"
#include "server/corvo_server_options.h"
#include "server/watchdog/corvo_server_wd.h"

namespace corvo {
class RPCServer;
class Scheduler;
}  // namespace corvo

namespace corvo::server {

class Engine;

class Server {
 public:
    enum exitcause_e : int {
        EXIT_CAUSE_FATAL = 0,
        EXIT_CAUSE_CTRL_C = 1,
        EXIT_CAUSE_SIGINT = 2,
        EXIT_CAUSE_SIGTERM = 3,
        EXIT_CAUSE_SHUTDOWN = 4,
    };

    /** The only server: null before `init` and after destruction. Read in signal context. */
    static Server* g_ptr;

    explicit Server(const Options& options);
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;
    ~Server();

    /** The whole life of the daemon. */
    void run();

    /**
     * Signal-safe. If the scheduler doesn't exist yet, the cause is recorded and ends the loop as soon as
     * it starts.
     */
    void stop(exitcause_e cause);
    const char* exitcause_to_str(int cause) const;
    static void on_signal(int signum);

    void handle_rpc_request(const std::string& request, std::string& response);
    /** Whole seconds since the start. Signal-safe. */
    int get_uptime() const;
    bool file_exists(const std::string& path) const;
    void get_rpc_cmds(std::vector<std::string>& out);
    const std::deque<std::unique_ptr<SignalReport>>& get_sig_events() const;

    /** Null until `init` has created it. */
    Scheduler* sched() const { return m_sched.get(); }
    Engine* engine() const { return m_engine.get(); }
    RpcCommandsTable& cmds() { return m_cmds; }
    WatchDog& wd() { return m_wd; }
    const Options& options() const { return m_options; }

 protected:
    // The steps of `init`, in order, after which requests can be answered. A server embedded in another
    // program calls only these: they create no socket, signal handler, log file or child process.
    void become_global();
    void create_commands();
    void create_engine();

 private:
    void init();
    bool daemonize();
    void register_signals();
    void create_rpc_server();
    void log_destination() const;
    void log_banner() const;
    void log_version() const;
    void add_watchdog_task();

    void load_config_file();
    void init_leak_detector();
    void auto_start();
    int serve();
    void on_stop(int cause);
    void bring_engine_down();

    std::unique_ptr<Scheduler> m_sched;
    std::shared_ptr<RPCServer> m_rpc_server;
    Options m_options;
    int64_t m_start_time = 0;  ///< monotonic seconds
    std::unique_ptr<Engine> m_engine;
    RpcCommandsTable m_cmds;
    WatchDog m_wd;
    volatile std::sig_atomic_t m_early_stop;
};

}  // namespace corvo::server
