#pragma once
// The supervising watchdog. The process that calls `init` forks and, as the parent, stays in `launch_wd`
// until it exits; each child returns from `init` and becomes the server. The object is created in the parent
// and lives on in every child, so a member belongs to one process or to both: see the groups below.
//
// After a fork, three things must hold: output buffered by the parent isn't printed by the child too, a stop
// signal reaches a handler that serves it, and the child holds none of the earlier children's pipes.

#include <sys/types.h>

#include <csignal>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "server/watchdog/corvo_hog_reporter.h"
#include "server/watchdog/corvo_server_wd.h"
#include "server/watchdog/corvo_wd_backoff.h"
#include "server/watchdog/corvo_wd_ladder.h"
#include "server/watchdog/corvo_wd_stderr.h"
#include "utils/unique_fd.h"

namespace corvo::server {

class WDReal : public WDInstance {
 public:
    /** Installs the parent's signal handlers, before any child can send a heartbeat. */
    explicit WDReal(const WatchedServer& server);
    ~WDReal() override;

    void init(const WDConf& conf, const std::string& log_file, const std::string& config_file,
              Logger::logger_level_e level) override;
    void run(Scheduler* sched) override;
    void report(int signum, const char* text) const override;
    const std::deque<std::unique_ptr<SignalReport>>& get_sig_events() const override { return m_sig_events; }

 private:
    void register_wd_signals();
    void unregister_wd_signals();
    static void unregister_wd_signal(int signum, const struct sigaction& action);

    // The parent's life, corvo_wd_launch.cpp.
    /** Returns only in a child. */
    void launch_wd();
    void log_settings() const;
    /** Empty if there is none. */
    std::string config_in_force() const;
    /** -1 in the child; in the parent, the wait status of the child, which has ended. */
    int do_fork_n_watchdog();
    pid_t fork_child(UniqueFd& read_end, UniqueFd& write_end);
    void become_child(pid_t expected_parent, UniqueFd& read_end, UniqueFd& write_end);
    void setup_child_with_wd() const;
    void print_status_info(int status) const;
    void reload_exp_backoff();
    [[noreturn]] static void leave(int exit_code);

    // The watch over one child, corvo_wd_watch.cpp.
    int do_watchdog(pid_t pid);
    void check_ping(pid_t pid);
    void handle_ping_long_wait(long long delta_ms, pid_t pid);
    void handle_ping_max_wait(long long delta_ms, pid_t pid, Reaction reaction);
    int handle_stop_action(pid_t pid);
    void drain_stderr();

    // In both processes.
    const WatchedServer& m_server;
    std::string m_log_file;
    std::string m_config_file;
    Logger::logger_level_e m_log_level = Logger::INFO;
    bool m_reload = false;
    bool m_hog_detection = false;
    std::vector<int> m_wd_signals;
    std::unordered_map<int, struct sigaction> m_prev_sigact;

    // In the parent.
    int32_t m_hog_ms = 0;           ///< the current hog's duration as last measured; 0 if there is none
    bool m_not_responding = false;  ///< the watchdog has aborted this child
    uint32_t m_stderr_wait_ms = 1000;
    StderrReader m_stderr;
    ReloadBackoff m_backoff;

    // In the child.
    pid_t m_parent_pid = -1;
    UniqueFd m_stderr_fd;  ///< write end of the pipe; descriptor 2 is a duplicate
    std::deque<std::unique_ptr<SignalReport>> m_sig_events;
    std::unique_ptr<HogReporter> m_hog_reporter;
};

/**
 * The state letter of a process, as in /proc/<pid>/stat. Throws corvo::Exception if it can't be determined.
 */
char get_proc_state(pid_t pid);

}  // namespace corvo::server
