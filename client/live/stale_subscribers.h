#pragma once
// Subscriptions of programs that ended without unsubscribing. The daemon keeps them and tries to reach each
// of them at every event.

#include <string>
#include <vector>

#include "client/wire/daemon.h"

namespace brumectl {

struct CleanUp {
    std::vector<std::string> removed;
    std::vector<std::string> kept;     ///< somebody is listening there
    std::vector<std::string> unknown;  ///< can't be checked from here, so left alone
};

/** Removes those that are certainly stale. Throws Failure. */
CleanUp remove_stale_subscribers(Daemon& daemon);

}  // namespace brumectl
