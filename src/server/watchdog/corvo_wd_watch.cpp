// The parent's watch over one child: its end, its stderr, its heartbeats, and its stop.

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>

#include "infra/corvo_logger.h"
#include "server/watchdog/corvo_wd_exit.h"
#include "server/watchdog/corvo_wd_real.h"
#include "server/watchdog/corvo_wd_signals.h"
#include "utils/clock.h"
#include "utils/exception.h"
#include "utils/unique_file.h"

namespace corvo::server {
namespace {

const std::string COMP = "WD";

constexpr uint64_t STOP_WAIT_MS = 10000;
constexpr uint64_t DRAIN_MS = 1000;
constexpr useconds_t PAUSE_US = 100000;

std::string proc_state_text(pid_t pid) {
    try {
        return {get_proc_state(pid)};
    } catch (const Exception&) {
        return "unknown";
    }
}

int32_t as_hog_ms(long long delta_ms) {
    return static_cast<int32_t>(std::min<long long>(delta_ms, std::numeric_limits<int32_t>::max()));
}

void set_heartbeat_action(void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    for (const int signum : WD_SIGNALS)
        sigaddset(&action.sa_mask, signum);
    sigaction(SIGUSR2, &action, nullptr);
}

bool has_ended(pid_t pid, int& status) {
    const pid_t result = waitpid(pid, &status, WNOHANG);
    return wait_tells_end(result, errno);
}

/** Passes on to the child the signal that stopped this process. */
void pass_stop_to_child() {
    if (g_child_pid == 0) return;
    const bool by_int = g_stop_cause == STOP_SIGINT;
    kill(g_child_pid, by_int ? SIGINT : SIGTERM);
    CORVO_LOG(WARN, COMP, "Stopped by %s, passing to child", by_int ? "SIGINT" : "SIGTERM");
}

}  // namespace

int WDReal::do_watchdog(pid_t pid) {
    // Half of the smallest timeout is 0, with which the wait would neither read nor rest.
    const uint32_t wait_ms = std::max(m_stderr_wait_ms, 1U);
    int status = 0;
    while (g_stop_cause == STOP_NONE) {
        if (has_ended(pid, status)) break;
        m_stderr.read_stderr_from_child(wait_ms);
        check_ping(pid);
    }
    if (g_stop_cause != STOP_NONE) status = handle_stop_action(pid);
    drain_stderr();
    return status;
}

/** Makes sure that the child's last output is logged before its status. */
void WDReal::drain_stderr() {
    const uint64_t deadline = monotonic_ms() + DRAIN_MS;
    const uint64_t wait_ms = std::min<uint64_t>(m_stderr_wait_ms, DRAIN_MS);
    while (m_stderr.read_stderr_from_child(wait_ms) == 0 && monotonic_ms() < deadline)
        usleep(PAUSE_US);
}

void WDReal::check_ping(pid_t pid) {
    const uint64_t last_ping = last_ping_epoch();
    if (!m_hog_detection || last_ping == 0) return;
    const auto delta_ms = static_cast<long long>(monotonic_ms() - last_ping);
    const Reaction reaction =
        reaction_to(delta_ms, m_conf.hog_timeout_ms, m_conf.kill_timeout_ms, m_not_responding);
    switch (reaction) {
        case Reaction::NONE:
            if (m_hog_ms != 0) CORVO_LOG(WARN, COMP, "HOG lasted %d ms!", m_hog_ms);
            m_hog_ms = 0;
            return;
        case Reaction::HOG:
            handle_ping_long_wait(delta_ms, pid);
            return;
        case Reaction::ABORT:
        case Reaction::AWAIT_ABORT:
        case Reaction::KILL:
            handle_ping_max_wait(delta_ms, pid, reaction);
            return;
    }
}

void WDReal::handle_ping_long_wait(long long delta_ms, pid_t pid) {
    const std::string state = proc_state_text(pid);
    kill(pid, SIGUSR1);
    m_hog_ms = as_hog_ms(delta_ms);
    CORVO_LOG(DEBUG, COMP, "No heartbeat for %lld ms. Sending HOG signal to child (state %s)", delta_ms,
              state.c_str());
}

void WDReal::handle_ping_max_wait(long long delta_ms, pid_t pid, Reaction reaction) {
    const std::string state = proc_state_text(pid);
    if (reaction == Reaction::KILL) {
        kill(pid, SIGKILL);
        CORVO_LOG(WARN, COMP, "No heartbeat for %lld ms. Killing child (state %s)", delta_ms, state.c_str());
    } else if (reaction == Reaction::ABORT) {
        kill(pid, SIGABRT);
        CORVO_LOG(WARN, COMP, "No heartbeat for %lld ms. Aborting child (state %s)", delta_ms, state.c_str());
    }
    m_not_responding = true;
    m_hog_ms = as_hog_ms(delta_ms);
}

int WDReal::handle_stop_action(pid_t pid) {
    pass_stop_to_child();
    CORVO_LOG(DEBUG, COMP, "Waiting to child's complete exit");
    set_heartbeat_action(SIG_IGN);
    const uint64_t deadline = monotonic_ms() + STOP_WAIT_MS;
    int status = 0;
    bool ended = false;
    while (!(ended = has_ended(pid, status)) && monotonic_ms() < deadline) {
        // A child that prints while it stops must not block on a full pipe.
        m_stderr.read_stderr_from_child(0);
        usleep(PAUSE_US);
    }
    if (!ended) {
        CORVO_LOG(INFO, COMP, "Child didn't respond to signal, killing...");
        kill(pid, SIGKILL);
    }
    set_heartbeat_action(signal_handler);
    forget_pings();
    return status;
}

char get_proc_state(pid_t pid) {
    char line[1024] = "";
    const UniqueFile file(fopen(("/proc/" + std::to_string(pid) + "/stat").c_str(), "re"));
    if (!file || !fgets(line, sizeof line, file.get())) throw Exception("couldn't get proc state");
    const char* name_end = strchr(line, ')');
    if (!name_end || strlen(name_end) < 3) throw Exception("couldn't get proc state");
    return name_end[2];
}

}  // namespace corvo::server
