#pragma once
// The ladder of reactions to a silent child: what to do is decided here, from numbers alone; doing it is
// WDReal's business.

#include <cstdint>

namespace corvo::server {

/** From a child's abort to its kill: time for its handler to write a report and a stack trace. */
inline constexpr int64_t ABORT_TO_KILL_MS = 10000;

enum class Reaction {
    NONE,         ///< the child is alive
    HOG,          ///< ask it for a stack trace, at every check
    ABORT,        ///< once
    AWAIT_ABORT,  ///< it has been aborted and may still be writing its report
    KILL,         ///< at every check until it is gone
};

/** `not_responding`: the watchdog has already put this child down once. A limit itself still counts as below.
 */
Reaction reaction_to(int64_t silence_ms, uint32_t hog_timeout_ms, uint32_t kill_timeout_ms,
                     bool not_responding);

}  // namespace corvo::server
