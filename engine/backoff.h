#pragma once
// How a failing destination is retried: after increasing pauses. The first failure and the next success
// become notifications, which only the engine's calling thread may raise.

#include <cstdint>
#include <string>
#include <vector>

#include "notice.h"

namespace corvo::engine {

class Backoff {
 public:
    static constexpr uint64_t FIRST_PAUSE_MS = 1000;
    static constexpr uint64_t LONGEST_PAUSE_MS = 30000;

    /** The names of the notifications and the text of the second one: literals. */
    struct Words {
        const char* failed;
        const char* back;
        const char* back_text;
    };

    explicit Backoff(const Words& words) : m_words(words) {}

    void failed(const std::string& error, uint64_t now_ms);
    void succeeded();
    /** Raises what has become due since the last call. */
    void raise_notices();

    /** How long to wait before the next try, ms. */
    uint64_t wait_ms(uint64_t now_ms) const { return now_ms < m_retry_at_ms ? m_retry_at_ms - now_ms : 0; }
    uint64_t failures() const { return m_failures; }
    /** Since the last success. */
    uint64_t failures_in_a_row() const { return m_in_a_row; }
    /** That of the last failure; empty before. */
    const std::string& error() const { return m_error; }

 private:
    Words m_words;
    uint64_t m_retry_at_ms = 0;
    uint64_t m_failures = 0;
    uint64_t m_in_a_row = 0;
    std::string m_error;
    std::vector<Notice> m_notices;
};

}  // namespace corvo::engine
