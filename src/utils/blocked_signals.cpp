#include "utils/blocked_signals.h"

#include <cerrno>

namespace corvo {

BlockedSignals::BlockedSignals(std::span<const int> signals) {
    sigset_t blocked;
    sigemptyset(&blocked);
    for (const int signum : signals)
        sigaddset(&blocked, signum);
    sigprocmask(SIG_BLOCK, &blocked, &m_previous);
}

BlockedSignals::~BlockedSignals() {
    const int saved_errno = errno;
    sigprocmask(SIG_SETMASK, &m_previous, nullptr);
    errno = saved_errno;
}

}  // namespace corvo
