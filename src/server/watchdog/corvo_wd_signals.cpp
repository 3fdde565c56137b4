#include "server/watchdog/corvo_wd_signals.h"

#include <poll.h>

#include <cerrno>
#include <ctime>

#include "utils/blocked_signals.h"
#include "utils/clock.h"

namespace corvo::server {

volatile std::sig_atomic_t g_stop_cause = STOP_NONE;
pid_t g_child_pid = 0;

namespace {

// A 32-bit machine stores 64 bits in two steps, so the main flow only touches this with the signals blocked.
volatile uint64_t g_last_ping_epoch = 0;

timespec to_timespec(uint64_t ms) {
    timespec time{};
    time.tv_sec = static_cast<time_t>(ms / 1000);
    time.tv_nsec = static_cast<long>(ms % 1000 * 1000000);
    return time;
}

}  // namespace

void signal_handler(int signum) {
    const int saved_errno = errno;
    if (signum == SIGUSR2) g_last_ping_epoch = monotonic_ms();
    if (signum == SIGTERM) g_stop_cause = STOP_SIGTERM;
    if (signum == SIGINT) g_stop_cause = STOP_SIGINT;
    errno = saved_errno;
}

uint64_t last_ping_epoch() {
    const BlockedSignals blocked(WD_SIGNALS);
    return g_last_ping_epoch;
}

void forget_pings() {
    const BlockedSignals blocked(WD_SIGNALS);
    g_last_ping_epoch = 0;
}

bool wait_for_input(int fd, uint64_t timeout_ms) {
    const BlockedSignals blocked(WD_SIGNALS);
    const timespec timeout = to_timespec(g_stop_cause == STOP_NONE ? timeout_ms : 0);
    // poll rather than select, because descriptors may have any number. One below 0 is never ready.
    pollfd input{.fd = fd, .events = POLLIN, .revents = 0};
    return ppoll(&input, 1, &timeout, &blocked.previous()) > 0;
}

void sleep_unless_stopped(uint64_t ms) {
    const uint64_t deadline = monotonic_ms() + ms;
    for (uint64_t now = monotonic_ms(); g_stop_cause == STOP_NONE && now < deadline; now = monotonic_ms())
        wait_for_input(-1, deadline - now);
}

}  // namespace corvo::server
