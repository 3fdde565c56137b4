#pragma once
// What the parent's signal handler passes to the main flow, and the waits that such a signal ends. Handlers
// are installed without SA_RESTART. Each wait below also closes the gap between "no stop yet" and the
// blocking call, in which a signal would otherwise go unnoticed until the wait is over.

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

/** The parent's handler. It only records a heartbeat or a stop cause. */
void signal_handler(int signum);

/** Time of the last heartbeat in monotonic milliseconds; 0 if this child hasn't sent any. */
uint64_t last_ping_epoch();
/** Called before a new child starts: the old one's heartbeats say nothing about it. */
void forget_pings();

/**
 * Waits for input on `fd` (-1 for none), a signal or the timeout; doesn't wait if a stop has been recorded.
 * Returns true if reading `fd` won't block.
 */
bool wait_for_input(int fd, uint64_t timeout_ms);
/** Sleeps for the whole time unless a stop signal has arrived or arrives; other signals don't shorten it. */
void sleep_unless_stopped(uint64_t ms);

}  // namespace corvo::server
