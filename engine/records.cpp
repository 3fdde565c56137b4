#include "records.h"

#include <sys/random.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <utility>

#include "attributes.h"
#include "engine_error.h"
#include "notice.h"
#include "record_text.h"

namespace corvo::engine {
namespace {

constexpr uint64_t IDLE_MS = 1000;
constexpr uint64_t BUSY_MS = 20;
/** Records are sent when a batch is full, or else all together this long after the last time. */
constexpr uint64_t BATCH_MS = 1000;
constexpr int BATCHES_PER_TICK = 4;
constexpr uint64_t CLOCK_MS = 1000;
/** Smaller differences come from reading two clocks one after the other. */
constexpr int64_t STEP_US = 100000;
/** A smaller correction of the time of day isn't worth a notification. */
constexpr int64_t WORTH_TELLING_US = 1000000;
/** For the last records when there is no spool to keep them. */
constexpr uint64_t LAST_CHANCE_MS = 1000;
constexpr uint64_t NAP_MS = 5;

constexpr Backoff::Words WORDS = {"records.failed", "records.back", "records are sent again"};

/** Different each time, also on a device whose clock begins anew. */
std::string random_name() {
    uint64_t random = 0;
    if (getrandom(&random, sizeof random, 0) != sizeof random) random = realtime_us();
    char text[17];
    std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(random));
    return text;
}

}  // namespace

uint64_t realtime_us() {
    timespec t{};
    clock_gettime(CLOCK_REALTIME, &t);
    return static_cast<uint64_t>(t.tv_sec) * 1000000 + static_cast<uint64_t>(t.tv_nsec) / 1000;
}

Records::Records(const Options& options, ClockFn clock, ClockFn time_of_day)
    : m_options(options), m_clock(clock), m_time_of_day(time_of_day), m_delivery(WORDS) {
    m_config.type = api::EXPORTER_NONE;
}

void Records::open() {
    const std::lock_guard lock(m_mutex);
    m_running_dry = false;
    if (m_queue) return;
    m_queue = std::make_unique<RecordQueue>(m_options.spool, m_options.spool_bytes, m_next_number);
    if (m_run.empty()) {
        append_clean(m_options.sensor, m_sensor);
        m_run = random_name();
        m_origin = ",\"run\":\"" + m_run + "\",\"sensor\":";
        append_quoted(m_sensor, m_origin);
    }
    m_offset_us = current_offset_us();
}

// The old sink stops sending before the batch it refers to is sent again.
void Records::send_to(const api::ExporterConfig& config) {
    const std::lock_guard lock(m_mutex);
    m_config = config;
    m_sink.reset();
    if (!m_batch.empty()) m_queue->put_back(m_batch);
    m_batch.clear();
    m_sending = false;
    m_delivery = Backoff(WORDS);
}

bool Records::is_due(const Flow& flow, uint64_t now_ms) const {
    const uint64_t since_ms = flow.recorded ? flow.recorded->time_ms : flow.first_seen_ms;
    const uint64_t told =
        flow.recorded ? flow.recorded->traffic.packets[0] + flow.recorded->traffic.packets[1] : 0;
    return now_ms - since_ms >= m_interval_ms && flow.all_packets() > told;
}

void Records::report(Flow& flow, const Classifier& classifier, why_e why) noexcept {
    const std::lock_guard lock(m_mutex);
    if (!m_queue) return;
    try {
        make(flow, classifier, why);
    } catch (const std::exception&) {  // a flow that goes on will be told of later
        if (why != ACTIVE) m_queue->skip();
    }
}

void Records::make(Flow& flow, const Classifier& classifier, why_e why) {
    const uint64_t number = m_queue->next_number();
    const FlowRecorded before = flow.recorded ? *flow.recorded : FlowRecorded{{}, number, 0, 0};
    std::unique_ptr<FlowRecorded> fresh;
    if (why == ACTIVE && !flow.recorded) fresh = std::make_unique<FlowRecorded>();
    FlowTraffic added = flow.counted();
    for (int end : {0, 1}) {
        added.packets[end] -= before.traffic.packets[end];
        added.bytes[end] -= before.traffic.bytes[end];
    }
    m_line.clear();
    append_record({number, before.first_number, m_origin, why, time_us(flow.first_seen_ms),
                   time_us(before.until_ms), time_us(flow.last_seen_ms)},
                  flow, added, classifier, m_line);
    const uint64_t now_ms = m_clock();
    m_queue->add(m_line, now_ms);
    if (why != ACTIVE) return;
    if (fresh) flow.recorded = std::move(fresh);
    *flow.recorded = {flow.counted(), before.first_number, now_ms, flow.last_seen_ms};
}

void Records::flush() {
    const std::lock_guard lock(m_mutex);
    write();
    raise_notices();
}

void Records::write() {
    if (m_queue) m_queue->flush(m_clock());
}

void Records::raise_notices() {
    m_delivery.raise_notices();
    if (m_queue) m_queue->trouble().raise_notices();
}

uint64_t Records::tick(uint64_t now_ms) {
    const std::lock_guard lock(m_mutex);
    if (!m_queue) return IDLE_MS;
    if (now_ms >= m_clock_due_ms) look_at_clock(now_ms);
    m_queue->flush(now_ms);
    const uint64_t delay_ms = send(now_ms);
    tell_losses();
    raise_notices();
    if (m_running_dry && m_batch.empty() && m_queue->waiting_bytes() == 0) end();
    return delay_ms;
}

void Records::look_at_clock(uint64_t now_ms) {
    m_clock_due_ms = now_ms + CLOCK_MS;
    const int64_t offset_us = current_offset_us();
    const int64_t step_us = offset_us - m_offset_us;
    if (std::abs(step_us) < STEP_US) return;
    m_offset_us = offset_us;
    if (std::abs(step_us) < WORTH_TELLING_US) return;
    raise_notice("records.clock", notif::SEV_INFO,
                 "the time of day was set " + std::string(step_us < 0 ? "back" : "forward") + " by " +
                     std::to_string(std::abs(step_us) / 1000000) + " s, which shows in the records");
}

int64_t Records::current_offset_us() const {
    return static_cast<int64_t>(m_time_of_day()) - static_cast<int64_t>(m_clock()) * 1000;
}

// Once for each time that records wait too long for their receiver.
void Records::tell_losses() {
    const bool losing = m_queue->lost() > std::exchange(m_lost, m_queue->lost());
    if (losing && !std::exchange(m_losses_told, true))
        raise_notice("records.lost", notif::SEV_WARN, "too many records are waiting, the oldest are dropped");
    if (m_batch.empty() && m_queue->waiting_bytes() == 0) m_losses_told = false;
}

uint64_t Records::send(uint64_t now_ms) {
    for (int i = 0; i < BATCHES_PER_TICK; i++) {
        if (m_config.type == api::EXPORTER_NONE) return IDLE_MS;
        const uint64_t wait_ms = m_delivery.wait_ms(now_ms);
        if (!m_sending && wait_ms > 0) return std::min(wait_ms, IDLE_MS);
        try {
            if (!m_sink) m_sink = make_sink(m_config, Payload::RECORDS);
        } catch (const Error& e) {
            m_delivery.failed(e.what(), now_ms);
            continue;
        }
        if (!fill(now_ms)) return m_batch_due_ms > now_ms ? m_batch_due_ms - now_ms : IDLE_MS;
        const ExportSink::Outcome outcome = m_sending ? m_sink->poll() : m_sink->start(m_batch);
        m_sending = outcome == ExportSink::PENDING;
        if (m_sending) return BUSY_MS;
        settle(outcome, now_ms);
    }
    return BUSY_MS;
}

// Whatever the receiver says against it, a batch is kept: it may be the receiver that is wrong.
void Records::settle(ExportSink::Outcome outcome, uint64_t now_ms) {
    if (outcome != ExportSink::SENT) {
        m_delivery.failed(m_sink->error(), now_ms);
        return;
    }
    m_queue->accept(m_batch);
    m_batch.clear();
    m_delivery.succeeded();
}

bool Records::fill(uint64_t now_ms) {
    if (!m_batch.empty()) return true;
    const size_t most = m_sink->max_text();
    if (now_ms >= m_batch_due_ms) {
        m_due_bytes = m_queue->waiting_bytes();
        m_batch_due_ms = now_ms + BATCH_MS;
    }
    if (m_due_bytes == 0 && m_queue->waiting_bytes() < most) return false;
    const bool taken = m_queue->take(most, m_batch);
    m_due_bytes -= taken ? std::min<uint64_t>(m_due_bytes, m_batch.size() + 1) : m_due_bytes;
    return taken;
}

void Records::close() noexcept {
    const std::lock_guard lock(m_mutex);
    if (m_queue) end();
}

void Records::end() {
    try {
        finish();
    } catch (const std::exception&) {
        // What is lost shows in the numbers.
    }
    m_batch.clear();
    m_sink.reset();
    m_sending = m_running_dry = false;
    m_queue.reset();
}

void Records::finish() {
    write();
    const bool may_wait = !m_queue->has_spool() && m_config.type != api::EXPORTER_NONE;
    for (uint64_t naps = may_wait ? LAST_CHANCE_MS / NAP_MS : 0; m_queue->waiting_bytes() > 0; naps--) {
        m_batch_due_ms = 0;
        send(m_clock());
        if (naps == 0 || m_delivery.failures_in_a_row() > 0) break;
        if (m_sending) usleep(NAP_MS * 1000);
    }
    m_sink.reset();
    if (!m_batch.empty()) m_queue->put_back(m_batch);
    m_queue->close(m_clock());
    tell_losses();
    raise_notices();
    m_next_number = m_queue->next_number();
    m_past_sent += m_queue->sent();
    m_past_lost += m_queue->lost();
    m_lost = 0;
}

void Records::describe(Json::Value& out) const {
    const std::lock_guard lock(m_mutex);
    out["sensor"] = m_sensor;
    out["run"] = m_run;
    out["next"] = Json::UInt64{m_queue ? m_queue->next_number() : m_next_number};
    out["sent"] = Json::UInt64{m_past_sent + (m_queue ? m_queue->sent() : 0)};
    out["lost"] = Json::UInt64{m_past_lost + (m_queue ? m_queue->lost() : 0)};
    out["waiting_bytes"] = Json::UInt64{m_queue ? m_queue->waiting_bytes() : 0};
    out["rubbish"] = Json::UInt64{m_queue ? m_queue->rubbish() : 0};
    out["failed"] = Json::UInt64{m_delivery.failures()};
    if (!m_delivery.error().empty()) out["last_error"] = m_delivery.error();
    if (m_queue && !m_queue->trouble().error().empty()) out["spool_error"] = m_queue->trouble().error();
}

}  // namespace corvo::engine
