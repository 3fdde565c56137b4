#pragma once
// Ctrl-C and its kin end every command in good order: they are blocked but while the program waits, and a
// wait that one of them ends throws `Interrupted`, so that destructors remove what must not stay behind.

#include <poll.h>

#include <exception>
#include <vector>

namespace brumectl {

/** Not a Failure: nothing is printed. main ends the program by the signal itself, as a shell expects. */
class Interrupted : public std::exception {
 public:
    explicit Interrupted(int signum) : m_signum(signum) {}
    const char* what() const noexcept override { return "interrupted"; }
    int signum() const { return m_signum; }

 private:
    int m_signum;
};

namespace interrupt {

/** SIGINT, SIGTERM, SIGHUP and SIGQUIT are held from here on. Call once, first thing in main. */
void install();
/** @throws Interrupted if one has arrived. For loops that work long without waiting. */
void check();
/** Whether `check` would throw. For where no exception can pass, such as a callback of a C library. */
bool pending() noexcept;
/**
 * poll(2) during which signals may arrive. -1 ms waits for ever; a signal of another kind only makes it
 * return early. Gives the number of descriptors that are ready. @throws Interrupted
 */
int wait(std::vector<pollfd>& fds, int timeout_ms);
/** The same for one descriptor: ready to read? */
bool wait_readable(int fd, int timeout_ms);
/** What has arrived is dealt with: waits go on as if it hadn't. */
void forget();
/** While one exists waits aren't ended: for a destructor's last requests, which bound their time themselves.
 */
class Deferred {
 public:
    Deferred();
    Deferred(const Deferred&) = delete;
    Deferred& operator=(const Deferred&) = delete;
    ~Deferred();
};
/** Ends this process by `signum`, as if it had never been held. */
[[noreturn]] void die_by(int signum);

}  // namespace interrupt
}  // namespace brumectl
