#pragma once
// Signals held back for as long as something runs that they must not interrupt.

#include <csignal>
#include <span>

namespace corvo {

/**
 * Blocks the given signals while it lives; one that comes meanwhile is delivered when it ends. Keeps errno on
 * destruction. For processes of one thread.
 */
class BlockedSignals {
 public:
    explicit BlockedSignals(std::span<const int> signals);
    BlockedSignals(const BlockedSignals&) = delete;
    BlockedSignals& operator=(const BlockedSignals&) = delete;
    ~BlockedSignals();

    /** The mask from before. */
    const sigset_t& previous() const { return m_previous; }

 private:
    sigset_t m_previous;
};

}  // namespace corvo
