#pragma once
// Holds back signals while something runs that they must not interrupt.

#include <csignal>
#include <span>

namespace corvo {

/**
 * Blocks the given signals during its lifetime; one that arrives in the meantime is delivered at the end.
 * Preserves errno on destruction. For single-threaded processes.
 */
class BlockedSignals {
 public:
    explicit BlockedSignals(std::span<const int> signals);
    BlockedSignals(const BlockedSignals&) = delete;
    BlockedSignals& operator=(const BlockedSignals&) = delete;
    ~BlockedSignals();

    /** The signal mask before blocking. */
    const sigset_t& previous() const { return m_previous; }

 private:
    sigset_t m_previous;
};

}  // namespace corvo
