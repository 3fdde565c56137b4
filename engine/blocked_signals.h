#pragma once
// For threads that are started in a process in which we are a guest: its handlers must run on the thread that
// expects them.

#include <pthread.h>

#include <csignal>

namespace corvo::engine {

/** While it exists, new threads receive no signals but those for their own faults. */
class BlockedSignals {
 public:
    BlockedSignals() {
        sigset_t all;
        sigfillset(&all);
        for (int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP, SIGSYS})
            sigdelset(&all, fault);
        pthread_sigmask(SIG_BLOCK, &all, &m_before);
    }
    BlockedSignals(const BlockedSignals&) = delete;
    BlockedSignals& operator=(const BlockedSignals&) = delete;
    ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }

 private:
    sigset_t m_before;
};

}  // namespace corvo::engine
