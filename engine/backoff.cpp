#include "backoff.h"

#include <algorithm>
#include <utility>

namespace corvo::engine {

void Backoff::failed(const std::string& error, uint64_t now_ms) {
    const uint64_t shift = std::min<uint64_t>(m_in_a_row, 5);
    m_retry_at_ms = now_ms + std::min(FIRST_PAUSE_MS << shift, LONGEST_PAUSE_MS);
    m_failures++;
    m_error = error;
    if (m_in_a_row++ == 0) m_notices.push_back({m_words.failed, notif::SEV_WARN, m_error});
}

void Backoff::succeeded() {
    m_retry_at_ms = 0;
    if (std::exchange(m_in_a_row, 0) > 0)
        m_notices.push_back({m_words.back, notif::SEV_INFO, m_words.back_text});
}

void Backoff::raise_notices() {
    for (const Notice& notice : m_notices)
        raise_notice(notice.name, notice.severity, notice.text);
    m_notices.clear();
}

}  // namespace corvo::engine
