#pragma once
// Decides how to react to a silent child, from numbers alone. WDReal carries the decision out.

#include <cstdint>

namespace corvo::server {

/** Time from a child's abort to its kill, for its handler to write a report and a stack trace. */
inline constexpr int64_t ABORT_TO_KILL_MS = 10000;

enum class Reaction {
    NONE,         ///< the child is alive
    HOG,          ///< ask it for a stack trace, at every check
    ABORT,        ///< once
    AWAIT_ABORT,  ///< aborted, but may still be writing its report
    KILL,         ///< at every check until it is gone
};

/**
 * `not_responding`: the watchdog has already aborted this child once. A silence equal to a timeout doesn't
 * exceed it yet.
 */
Reaction reaction_to(int64_t silence_ms, uint32_t hog_timeout_ms, uint32_t kill_timeout_ms,
                     bool not_responding);

}  // namespace corvo::server
