#include "server/watchdog/corvo_wd_conf.h"

#include "infra/corvo_version.h"
#include "utils/exception.h"

namespace corvo::server {
namespace {

constexpr uint32_t default_kill_timeout_sec() {
    if (Version::g_in_slave_mode) return 7200;
    if (Version::g_sanitizer != 0) return 60;
    return 20;
}

}  // namespace

const uint32_t WDConf::PING_DELTA_MAX_WAIT_SEC = default_kill_timeout_sec();

void WDConf::check_params() const {
    if (hog_timeout_ms >= kill_timeout_ms) throw Exception("Hog timeout cannot be larger then kill timeout");
    if (hog_timeout_ms == 0) throw Exception("Hog timeout cannot be 0");
    if (backoff_multiplier < 1.0) throw Exception("Backoff multiplier must be 1 or above");
    if (backoff_max_interval_sec == 0) throw Exception("Backoff maximum seconds interval cannot be 0");
    if (backoff_reset_interval_sec == 0) throw Exception("Backoff reset interval cannot be 0");
}

}  // namespace corvo::server
