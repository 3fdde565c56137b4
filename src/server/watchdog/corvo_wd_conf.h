#pragma once
// The watchdog's settings.

#include <cstdint>

namespace corvo::server {

struct WDConf {
    /** The default kill timeout in seconds. Depends on the build: see the source. */
    static const uint32_t PING_DELTA_MAX_WAIT_SEC;

    bool hog_enabled = true;
    bool reload_enabled = false;
    bool disabled = false;
    uint32_t hog_timeout_ms = 2000;
    uint32_t kill_timeout_ms = 1000 * PING_DELTA_MAX_WAIT_SEC;
    double backoff_multiplier = 2.0;
    uint32_t backoff_max_interval_sec = 60;
    uint32_t backoff_reset_interval_sec = 30;

    /** Throws corvo::Exception at the first violated rule. */
    void check_params() const;
};

}  // namespace corvo::server
