#include "server/watchdog/corvo_wd_ladder.h"

namespace corvo::server {

Reaction reaction_to(int64_t silence_ms, uint32_t hog_timeout_ms, uint32_t kill_timeout_ms,
                     bool not_responding) {
    if (silence_ms > kill_timeout_ms + ABORT_TO_KILL_MS) return Reaction::KILL;
    if (silence_ms > int64_t{kill_timeout_ms})
        return not_responding ? Reaction::AWAIT_ABORT : Reaction::ABORT;
    if (silence_ms > int64_t{hog_timeout_ms}) return Reaction::HOG;
    return Reaction::NONE;
}

}  // namespace corvo::server
