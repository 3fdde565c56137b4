#pragma once
// How long to wait before a new child replaces one that ended. Lives in the parent, across all children. Time
// is passed in, so that tests can step it.

#include <cstdint>

#include "server/watchdog/corvo_wd_conf.h"

namespace corvo::server {

class ReloadBackoff {
 public:
    /**
     * Delay in whole seconds of the reload that is due at `now_sec` (monotonic); 0 for none. The first
     * reload, and the first one after a quiet period, has no delay; the others grow by the multiplier up to
     * the ceiling.
     */
    uint32_t next_delay_sec(const WDConf& conf, int64_t now_sec);

 private:
    int64_t m_last_reload = 0;  ///< time of the last call; 0 if there was none
    double m_curr_interval_sec = 1.0;
};

}  // namespace corvo::server
