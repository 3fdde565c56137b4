#pragma once
// The daemon's figures at one moment: the source of `top` and `metrics`.

#include <json/value.h>

#include <cstdint>
#include <string>
#include <vector>

#include "client/live/machine.h"
#include "client/wire/daemon.h"
#include "client/wire/flow_lists.h"

namespace brumectl {

/** A result, or the reason why there is none. */
struct Answer {
    Json::Value value = {};
    std::string error = {};  ///< empty if there is a value
};

/** Which of the engine's lists belongs to a sample, and how it is sorted. */
struct ListWish {
    const flow_lists::List* list = nullptr;  ///< null for none
    const char* sort = nullptr;              ///< of flows
};

/** The beginning of a list, as far as anybody reads it. */
struct ListAnswer {
    const flow_lists::List* list = nullptr;  ///< null if none was wished for
    std::vector<Json::Value> rows = {};
    uint64_t total = 0;      ///< on the engine's side
    std::string error = {};  ///< why there are no rows; empty if the engine has answered
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
    ListAnswer listed = {};
    Machine machine = {};

    /**
     * Only sends requests that the daemon can fulfil, since each refusal would add a line to its log. All
     * requests together take at most `budget_ms`; changes the timeout of `daemon`.
     * Throws NoDaemon, TimedOut, Interrupted, Failure for an unreadable `status`.
     */
    static LiveSample take(Daemon& daemon, int budget_ms, const ListWish& wish = {});
    /** Everything in one document. */
    Json::Value json() const;
};

}  // namespace brumectl
