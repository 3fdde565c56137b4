#include "server/watchdog/corvo_wd_backoff.h"

namespace corvo::server {

uint32_t ReloadBackoff::next_delay_sec(const WDConf& conf, int64_t now_sec) {
    const bool first = m_last_reload == 0;
    const int64_t elapsed = now_sec - m_last_reload;
    // The time stamp is from before the delay, so the delay counts as quiet time.
    m_last_reload = now_sec;
    if (first) return 0;
    if (elapsed < 0 || elapsed > int64_t{conf.backoff_reset_interval_sec}) {
        m_curr_interval_sec = 1.0;
        return 0;
    }
    const double grown = m_curr_interval_sec * conf.backoff_multiplier;
    // Written this way round, a NaN multiplier ends at the ceiling too.
    m_curr_interval_sec = grown < conf.backoff_max_interval_sec ? grown : conf.backoff_max_interval_sec;
    return static_cast<uint32_t>(m_curr_interval_sec);
}

}  // namespace corvo::server
