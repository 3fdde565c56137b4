#pragma once
// The collector "records": what a data path reports of its flows becomes records, which are queued and sent
// to the exporter's destination in batches, in order, until it has taken them. Workers report by themselves.

#include <json/value.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "backoff.h"
#include "export_sink.h"
#include "flow_watcher.h"
#include "monotonic.h"
#include "options.h"
#include "record_queue.h"

namespace corvo::engine {

/** Microseconds since 1970. */
uint64_t realtime_us();

class Records : public FlowWatcher {
 public:
    static constexpr const char* COLLECTOR = "records";

    /** `time_of_day` in microseconds may be set by anybody at any time. */
    Records(const Options& options, ClockFn clock, ClockFn time_of_day = realtime_us);

    /** Opens the queue. Throws Error if the spool can't be used. Does nothing if it's open. */
    void open();
    /** No more records come: ends the queue when all are sent. */
    void run_dry() {
        const std::lock_guard lock(m_mutex);
        m_running_dry = true;
    }
    /** Of the records of a flow that goes on. */
    void set_interval(uint64_t interval_ms) { m_interval_ms = interval_ms; }
    /** From now on sends to this destination, also what the last one hasn't taken. */
    void send_to(const api::ExporterConfig& config);

    void report(Flow& flow, const Classifier& classifier, why_e why) noexcept override;
    bool is_due(const Flow& flow, uint64_t now_ms) const override;

    /** Writes and sends without waiting. Returns the delay until the next call, ms. */
    uint64_t tick(uint64_t now_ms);
    /** Puts what was made on disk; cheap if that is nothing. */
    void flush();
    /** Ends the queue. Without a spool, the destination has a second to take what is left. */
    void close() noexcept;

    uint64_t failures_in_a_row() const {
        const std::lock_guard lock(m_mutex);
        return m_delivery.failures_in_a_row();
    }
    /** Adds the collector's sample to `out`. */
    void describe(Json::Value& out) const;

 private:
    // All of these need the lock.
    void write();
    void raise_notices();
    void end();
    void make(Flow& flow, const Classifier& classifier, why_e why);
    int64_t time_us(uint64_t time_ms) const { return static_cast<int64_t>(time_ms) * 1000 + m_offset_us; }
    int64_t current_offset_us() const;
    void look_at_clock(uint64_t now_ms);
    void tell_losses();
    uint64_t send(uint64_t now_ms);
    bool fill(uint64_t now_ms);
    void settle(ExportSink::Outcome outcome, uint64_t now_ms);
    void finish();

    mutable std::mutex m_mutex;
    const Options m_options;
    ClockFn m_clock;
    ClockFn m_time_of_day;
    std::atomic<uint64_t> m_interval_ms = 60000;
    int64_t m_offset_us = 0;  ///< from the clock to the time of day
    uint64_t m_clock_due_ms = 0;
    std::string m_sensor;
    std::string m_run;
    std::string m_origin;  ///< both, as members of each record
    std::string m_line;    ///< kept to reuse its memory
    std::unique_ptr<RecordQueue> m_queue;
    bool m_running_dry = false;
    bool m_losses_told = false;
    uint64_t m_lost = 0;         ///< as of the last look
    uint64_t m_next_number = 1;  ///< while there is no queue
    uint64_t m_past_sent = 0;    ///< through earlier queues
    uint64_t m_past_lost = 0;

    api::ExporterConfig m_config;
    std::unique_ptr<ExportSink> m_sink;  ///< made when there is something to send
    std::string m_batch;                 ///< what is being sent, or waits to be sent again
    bool m_sending = false;
    uint64_t m_batch_due_ms = 0;
    uint64_t m_due_bytes = 0;  ///< what waits since then
    Backoff m_delivery;
};

}  // namespace corvo::engine
