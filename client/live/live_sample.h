#pragma once
// The daemon's figures at one moment: the source of `top` and `metrics`.

#include <json/value.h>

#include <cstdint>
#include <string>

#include "client/live/machine.h"
#include "client/wire/daemon.h"

namespace brumectl {

/** A result, or the reason why there is none. */
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
     * Only sends requests that the daemon can fulfil, since each refusal would add a line to its log. All
     * requests together take at most `budget_ms`; changes the timeout of `daemon`.
     * Throws NoDaemon, TimedOut, Interrupted, Failure for an unreadable `status`.
     */
    static LiveSample take(Daemon& daemon, int budget_ms);
    /** Everything in one document. */
    Json::Value json() const;
};

}  // namespace brumectl
