// The parent's life from launch to exit, and the moment when a fork becomes the server.

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "infra/corvo_logger.h"
#include "server/watchdog/corvo_server_sig.h"
#include "server/watchdog/corvo_wd_evidence.h"
#include "server/watchdog/corvo_wd_exit.h"
#include "server/watchdog/corvo_wd_orphan.h"
#include "server/watchdog/corvo_wd_real.h"
#include "server/watchdog/corvo_wd_server.h"
#include "server/watchdog/corvo_wd_signals.h"
#include "utils/blocked_signals.h"
#include "utils/clock.h"

namespace corvo::server {
namespace {

const std::string COMP = "WD";

constexpr int IN_CHILD = -1;

/** Creates a pipe with both ends above the standard descriptors and close-on-exec. */
bool make_pipe(UniqueFd& read_end, UniqueFd& write_end) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return false;
    read_end.reset(lift_fd(ends[0]));
    write_end.reset(lift_fd(ends[1]));
    return read_end && write_end;
}

/** If whoever started us ignores SIGCHLD, the kernel would discard the children's statuses. */
void keep_child_statuses() {
    std::signal(SIGCHLD, SIG_DFL);
}

}  // namespace

void WDReal::launch_wd() {
    m_reload = m_conf.reload_enabled;
    m_hog_detection = m_conf.hog_enabled;
    const std::string events_dir = get_events_dest_dir_name(m_log_file);
    Logger::open_logger(Logger::LOGGER_CONSOLE, m_log_level, m_log_file);
    CORVO_LOG(INFO, COMP, "Launched");
    get_sig_handler()->init(events_dir.c_str(), m_log_file);
    get_sig_handler()->set_server(&m_server);
    create_events_dir(events_dir);
    log_settings();
    keep_child_statuses();

    for (;;) {
        const int status = do_fork_n_watchdog();
        if (status == IN_CHILD) return;
        const bool normal = child_exited_normally(status, g_stop_cause, m_not_responding);
        print_status_info(status);
        if (normal) leave(parent_exit_code(status, true));
        collect_process_info(m_log_file, config_in_force(),
                             {SigHandler::dump_prefix() + "json", SigHandler::hog_dump_name()});
        m_not_responding = false;
        if (!m_reload) {
            CORVO_LOG(INFO, COMP, "Restarting brumecpd is disabled");
            leave(parent_exit_code(status, false));
        }
        forget_pings();
        reload_exp_backoff();
    }
}

void WDReal::log_settings() const {
    if (m_hog_detection)
        CORVO_LOG(INFO, COMP, "Hog timeout: %u ms; Kill timeout: %u ms", m_conf.hog_timeout_ms,
                  m_conf.kill_timeout_ms);
    else
        CORVO_LOG(INFO, COMP, "Hog detection disabled");
    if (m_reload)
        CORVO_LOG(INFO, COMP, "Reload: Backoff factor: %f; Max interval: %u sec; Reset interval: %u sec",
                  m_conf.backoff_multiplier, m_conf.backoff_max_interval_sec,
                  m_conf.backoff_reset_interval_sec);
    else
        CORVO_LOG(INFO, COMP, "Reload is disabled");
}

std::string WDReal::config_in_force() const {
    if (!m_config_file.empty()) return m_config_file;
    const char* by_default = m_server.default_config_file();
    return access(by_default, F_OK) == 0 ? by_default : "";
}

int WDReal::do_fork_n_watchdog() {
    UniqueFd read_end;
    UniqueFd write_end;
    if (!make_pipe(read_end, write_end)) {
        CORVO_LOG(ERROR, COMP, "Stderr pipe creation failed, exiting...");
        return 0;
    }
    const pid_t pid = fork_child(read_end, write_end);
    if (pid < 0) {
        CORVO_LOG(ERROR, COMP, "Fork has failed, exiting...");
        leave(-1);
    }
    if (pid == 0) return IN_CHILD;
    write_end.reset();
    m_stderr = StderrReader(std::move(read_end));
    const int status = do_watchdog(pid);
    m_stderr = StderrReader();
    return status;
}

pid_t WDReal::fork_child(UniqueFd& read_end, UniqueFd& write_end) {
    // Otherwise both processes would print what is buffered now.
    fflush(nullptr);
    // Until the child has its own handlers, a stop signal would only reach its copy of the parent's and
    // be lost. Blocked, it waits: in the child for the right handler, in the parent until the child's pid
    // is known.
    const BlockedSignals blocked(WD_SIGNALS);
    const pid_t self = getpid();
    const pid_t pid = fork();
    if (pid == 0) become_child(self, read_end, write_end);
    if (pid > 0) g_child_pid = pid;
    return pid;
}

void WDReal::become_child(pid_t expected_parent, UniqueFd& read_end, UniqueFd& write_end) {
    m_parent_pid = getppid();
    // An orphan may be adopted by a subreaper rather than init; it would then receive this child's heartbeats
    // and die of them.
    if (m_parent_pid <= 1 || m_parent_pid != expected_parent) {
        CORVO_LOG(ERROR, COMP, "Invalid parent PID %d, exiting...", m_parent_pid);
        leave(-1);
    }
    unregister_wd_signals();
    m_stderr_fd = std::move(write_end);
    dup2(m_stderr_fd.get(), STDERR_FILENO);
    setup_child_with_wd();
    watch_parent(m_parent_pid, std::move(read_end));
}

void WDReal::setup_child_with_wd() const {
    Logger::close_logger();
    SigHandler::register_child_signals();
}

void WDReal::print_status_info(int status) const {
    for (const StatusLine& line : status_info(status, m_not_responding))
        if (Logger::pred(line.level, COMP))
            Logger::xlog(__FILE__, __LINE__, line.level, COMP, Logger::as_format(line.text));
}

void WDReal::reload_exp_backoff() {
    const uint32_t delay_sec = m_backoff.next_delay_sec(m_conf, monotonic_sec());
    if (delay_sec == 0) {
        CORVO_LOG(INFO, COMP, "Restarting brumecpd");
        return;
    }
    CORVO_LOG(INFO, COMP, "Restarting brumecpd in %u seconds", delay_sec);
    sleep_unless_stopped(uint64_t{delay_sec} * 1000);
}

void WDReal::leave(int exit_code) {
    Logger::close_logger();
    exit(exit_code);
}

}  // namespace corvo::server
