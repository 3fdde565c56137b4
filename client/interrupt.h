#pragma once
// Makes Ctrl-C and similar signals end every command cleanly: they are blocked except while the program
// waits, and a wait that one of them ends throws `Interrupted`, so that destructors remove whatever must not
// stay behind.

#include <poll.h>

#include <exception>
#include <vector>

namespace brumectl {

/** Not a Failure: nothing is printed. main ends the program with the signal itself, so that shells notice. */
class Interrupted : public std::exception {
 public:
    explicit Interrupted(int signum) : m_signum(signum) {}
    const char* what() const noexcept override { return "interrupted"; }
    int signum() const { return m_signum; }

 private:
    int m_signum;
};

namespace interrupt {

/** Blocks SIGINT, SIGTERM, SIGHUP and SIGQUIT from here on. Call once, first thing in main. */
void install();
/** Throws Interrupted if one has arrived. For loops that run for long without waiting. */
void check();
/**
 * Whether `check` would throw. For code that exceptions can't pass through, such as a callback of a
 * C library.
 */
bool pending() noexcept;
/**
 * poll(2) during which signals may arrive. -1 ms waits for ever; other signals only make it return early.
 * Returns the number of ready descriptors. Throws Interrupted.
 */
int wait(std::vector<pollfd>& fds, int timeout_ms);
/** Whether a single descriptor becomes ready to read. */
bool wait_readable(int fd, int timeout_ms);
/** Treats signals that have arrived as handled: later waits ignore them. */
void forget();
/**
 * During its lifetime, waits aren't interrupted: for a destructor's last requests, which limit their
 * time themselves.
 */
class Deferred {
 public:
    Deferred();
    Deferred(const Deferred&) = delete;
    Deferred& operator=(const Deferred&) = delete;
    ~Deferred();
};
/** Ends this process with `signum`, as if it had never been blocked. */
[[noreturn]] void die_by(int signum);

}  // namespace interrupt
}  // namespace brumectl
