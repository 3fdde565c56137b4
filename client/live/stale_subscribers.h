#pragma once
// Subscriptions whose programs have gone without taking leave. The daemon keeps them, and tries to reach each
// of them at every event.

#include <string>
#include <vector>

#include "client/wire/daemon.h"

namespace brumectl {

struct CleanUp {
    std::vector<std::string> removed;
    std::vector<std::string> kept;     ///< somebody listens there
    std::vector<std::string> unknown;  ///< not to be judged from here: left alone
};

/** Removes those of which it is sure. @throws Failure */
CleanUp remove_stale_subscribers(Daemon& daemon);

}  // namespace brumectl
