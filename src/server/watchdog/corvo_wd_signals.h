#pragma once
// What the parent's signal handler leaves for the main flow, and the waits that such a signal ends. Handlers
// run without restart; every wait below also closes the gap between "no stop yet" and the blocking call, in
// which a signal would otherwise be noticed only after the whole wait.

#include <sys/types.h>

#include <csignal>
#include <cstdint>

namespace corvo::server {

enum stop_cause_e : int { STOP_NONE = 0, STOP_SIGINT = 1, STOP_SIGTERM = 2 };

/** The signals that the parent handles: two that stop it, and the heartbeat. */
inline constexpr int WD_SIGNALS[] = {SIGINT, SIGTERM, SIGUSR2};

/** A `stop_cause_e`, written by the handler. */
extern volatile std::sig_atomic_t g_stop_cause;
/** The current child; 0 before the first fork. */
extern pid_t g_child_pid;

/** The parent's handler. Stamps a heartbeat or records a stop cause, nothing else. */
void signal_handler(int signum);

/** Monotonic milliseconds of the last heartbeat; 0: none from this child yet. */
uint64_t last_ping_epoch();
/** Before a new child: what the old one sent says nothing about it. */
void forget_pings();

/**
 * Waits for input on `fd` (-1: for none), a signal or the time-out; not at all when a stop has been recorded.
 * True: reading `fd` won't block.
 */
bool wait_for_input(int fd, uint64_t timeout_ms);
/** Sleeps for the whole time unless a stop signal has come or comes; other signals don't shorten it. */
void sleep_unless_stopped(uint64_t ms);

}  // namespace corvo::server
