#pragma once
// Where samples leave for, and the queue before it. A failing destination is tried again, each time after a
// longer pause; meanwhile the newest samples are kept, within a bound.

#include <brumecpd/engine_api.h>

#include <cstdint>
#include <list>
#include <memory>
#include <string>

#include "export_sink.h"

namespace corvo::engine {

class Exporter {
 public:
    static constexpr size_t MAX_QUEUED = 64;
    static constexpr size_t MAX_QUEUED_BYTES = 1 << 20;

    /** Throws Error if that can't be a destination; the old one stays. Otherwise begins with nothing queued.
     */
    void configure(const api::ExporterConfig& config);
    /** Whether there is a destination at all. */
    bool wanted() const { return m_sink != nullptr; }
    /** The oldest that aren't being sent make room for it. */
    void add(std::string text);

    /** Sends what can be sent without waiting; gives the wanted delay to the next call, ms. */
    uint64_t tick(uint64_t now_ms);

    Json::Value describe() const;
    /** Failures since the last success. */
    uint64_t failures_in_a_row() const { return m_state.failures_in_a_row; }

 private:
    struct State {
        std::list<std::string> queue;  ///< oldest first; a text that is being sent stays in its place
        size_t bytes = 0;
        bool sending = false;  ///< the first
        uint64_t retry_at_ms = 0;
        uint64_t sent = 0;
        uint64_t failed = 0;
        uint64_t dropped = 0;
        uint64_t failures_in_a_row = 0;
        bool down = false;  ///< it was told that exporting fails
        std::string error;
    };

    void drop(std::list<std::string>::iterator text);
    void settle(ExportSink::Outcome outcome, uint64_t now_ms);
    void settle_failure(uint64_t now_ms);

    std::unique_ptr<ExportSink> m_sink;
    State m_state;
};

}  // namespace corvo::engine
