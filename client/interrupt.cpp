#include "client/interrupt.h"

#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>

#include "client/failure.h"

namespace brumectl::interrupt {

namespace {

constexpr int HELD[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};

volatile sig_atomic_t g_signum = 0;
int g_deferred = 0;
sigset_t g_outside;  ///< the mask that the program was started with, without the signals in HELD

void remember(int signum) {
    g_signum = signum;
}

/** Runs the handlers of signals that are pending but blocked. */
void let_in() {
    sigset_t held;
    pthread_sigmask(SIG_SETMASK, &g_outside, &held);
    pthread_sigmask(SIG_SETMASK, &held, nullptr);
}

}  // namespace

void install() {
    sigset_t held;
    sigemptyset(&held);
    struct sigaction action = {};
    action.sa_handler = remember;
    for (int signum : HELD) {
        struct sigaction before = {};
        sigaction(signum, nullptr, &before);
        if (before.sa_handler == SIG_IGN) continue;  // a background job of a shell without job control
        sigaction(signum, &action, nullptr);
        sigaddset(&held, signum);
    }
    signal(SIGPIPE, SIG_IGN);
    pthread_sigmask(SIG_BLOCK, &held, &g_outside);
    for (int signum : HELD)
        sigdelset(&g_outside, signum);
}

void check() {
    if (pending()) throw Interrupted(g_signum);
}

bool pending() noexcept {
    let_in();
    return g_signum != 0;
}

int wait(std::vector<pollfd>& fds, int timeout_ms) {
    timespec timeout = {timeout_ms / 1000, (timeout_ms % 1000) * 1000000L};
    const sigset_t* mask = g_deferred > 0 ? nullptr : &g_outside;
    int ready = ppoll(fds.data(), fds.size(), timeout_ms < 0 ? nullptr : &timeout, mask);
    if (g_signum != 0 && g_deferred == 0) throw Interrupted(g_signum);
    if (ready >= 0) return ready;
    if (errno != EINTR) throw Failure(std::string("poll failed: ") + strerror(errno));
    return 0;
}

bool wait_readable(int fd, int timeout_ms) {
    std::vector<pollfd> fds{{fd, POLLIN, 0}};
    return wait(fds, timeout_ms) > 0;
}

void forget() {
    g_signum = 0;
}

Deferred::Deferred() {
    ++g_deferred;
}

Deferred::~Deferred() {
    --g_deferred;
}

void die_by(int signum) {
    signal(signum, SIG_DFL);
    sigset_t one;
    sigemptyset(&one);
    sigaddset(&one, signum);
    raise(signum);
    pthread_sigmask(SIG_UNBLOCK, &one, nullptr);
    _exit(128 + signum);
}

}  // namespace brumectl::interrupt
