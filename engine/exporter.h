#pragma once
// The exporter's destination and the queue in front of it. A failing destination is retried after increasing
// pauses; meanwhile the newest samples are kept, up to a limit.

#include <brumecpd/engine_api.h>

#include <cstdint>
#include <list>
#include <memory>
#include <string>

#include "backoff.h"
#include "export_sink.h"

namespace corvo::engine {

class Exporter {
 public:
    static constexpr size_t MAX_QUEUED = 64;
    static constexpr size_t MAX_QUEUED_BYTES = 1 << 20;

    /**
     * Throws Error if the destination isn't usable, leaving the old one in place. Otherwise starts with
     * an empty queue.
     */
    void configure(const api::ExporterConfig& config);
    /** Whether a destination is set. */
    bool wanted() const { return m_sink != nullptr; }
    /** Makes room by dropping the oldest texts, except the one being sent. */
    void add(std::string text);

    /** Sends what it can without blocking. Returns the delay until the next call, ms. */
    uint64_t tick(uint64_t now_ms);

    Json::Value describe() const;
    /** Consecutive failures since the last success. */
    uint64_t failures_in_a_row() const { return m_state.backoff.failures_in_a_row(); }

 private:
    struct State {
        std::list<std::string> queue;  ///< oldest first; a text being sent stays in its place
        size_t bytes = 0;
        bool sending = false;  ///< the first text is being sent
        uint64_t sent = 0;
        uint64_t dropped = 0;
        Backoff backoff{{"export.failed", "export.back", "samples are exported again"}};
    };

    uint64_t send(uint64_t now_ms);
    void drop(std::list<std::string>::iterator text);
    void settle(ExportSink::Outcome outcome, uint64_t now_ms);

    std::unique_ptr<ExportSink> m_sink;
    State m_state;
};

}  // namespace corvo::engine
