#pragma once
// What a daemon says of itself at one moment: the source of `top` and `metrics`.

#include <json/value.h>

#include <cstdint>
#include <string>

#include "client/live/machine.h"
#include "client/wire/daemon.h"

namespace brumectl {

/** One answer, or why there's none. */
struct Answer {
    Json::Value value = {};
    std::string error = {};  ///< empty if there is a value
};

struct LiveSample {
    uint64_t taken_ms = 0;  ///< CLOCK_MONOTONIC
    Json::Value status;
    Answer health;      ///< with values and thresholds
    Answer collectors;  ///< "collectables" and "exporter"
    Answer flows;
    Answer protocols;
    Answer interfaces;
    Answer alerts;  ///< an array
    Machine machine = {};

    /**
     * Asks only what can be answered: each refusal would be a line in the daemon's log. All requests together
     * take at most `budget_ms`; `daemon`'s own time-out is changed.
     * @throws NoDaemon, TimedOut, Interrupted, Failure for a `status` that can't be read
     */
    static LiveSample take(Daemon& daemon, int budget_ms);
    /** All in one document. */
    Json::Value json() const;
};

}  // namespace brumectl
