#include "exporter.h"

#include <algorithm>
#include <iterator>

#include "engine_error.h"
#include "file_sink.h"
#include "http_sink.h"
#include "notice.h"

namespace corvo::engine {
namespace {

constexpr uint64_t IDLE_MS = 1000;
/** While a text is being sent. */
constexpr uint64_t BUSY_MS = 20;
constexpr uint64_t FIRST_PAUSE_MS = 1000;
constexpr uint64_t LONGEST_PAUSE_MS = 30000;

std::unique_ptr<ExportSink> sink_for(const api::ExporterConfig& config) {
    switch (config.type) {
        case api::EXPORTER_HTTP:
        case api::EXPORTER_HTTPS:
            return std::make_unique<HttpSink>(config);
        case api::EXPORTER_FILE:
            return std::make_unique<FileSink>(config.path);
        case api::EXPORTER_NONE:
            return nullptr;
        case api::EXPORTER_KILN_CLOUD:
            throw Error("this engine can't export to 'kiln-cloud', expecting http, https, file or none");
    }
    throw Error("there is no exporter of type " + std::to_string(config.type));
}

}  // namespace

void Exporter::configure(const api::ExporterConfig& config) {
    std::unique_ptr<ExportSink> sink = sink_for(config);
    m_sink = std::move(sink);  // the old sink stops sending before the text it refers to is freed
    m_state = State();
}

void Exporter::add(std::string text) {
    if (!m_sink) return;
    std::list<std::string>& queue = m_state.queue;
    auto full = [&] { return queue.size() >= MAX_QUEUED || m_state.bytes + text.size() > MAX_QUEUED_BYTES; };
    auto droppable = [&] { return queue.size() > (m_state.sending ? 1u : 0u); };
    bool fits = text.size() <= MAX_QUEUED_BYTES;
    while (fits && full() && droppable())
        drop(m_state.sending ? std::next(queue.begin()) : queue.begin());
    if (full()) {
        m_state.dropped++;
        return;
    }
    m_state.bytes += text.size();
    queue.push_back(std::move(text));
}

void Exporter::drop(std::list<std::string>::iterator text) {
    m_state.bytes -= text->size();
    m_state.queue.erase(text);
    m_state.dropped++;
}

uint64_t Exporter::tick(uint64_t now_ms) {
    State& state = m_state;
    for (size_t i = 0; i < MAX_QUEUED && !state.queue.empty(); i++) {
        if (!state.sending && now_ms < state.retry_at_ms) return state.retry_at_ms - now_ms;
        ExportSink::Outcome outcome = state.sending ? m_sink->poll() : m_sink->start(state.queue.front());
        state.sending = outcome == ExportSink::PENDING;
        if (state.sending) return BUSY_MS;
        settle(outcome, now_ms);
    }
    return IDLE_MS;
}

void Exporter::settle(ExportSink::Outcome outcome, uint64_t now_ms) {
    if (outcome != ExportSink::SENT) {
        settle_failure(now_ms);
        if (outcome == ExportSink::REFUSED) drop(m_state.queue.begin());
        return;
    }
    m_state.bytes -= m_state.queue.front().size();
    m_state.queue.pop_front();
    m_state.sent++;
    m_state.failures_in_a_row = 0;
    m_state.retry_at_ms = 0;
    if (!m_state.down) return;
    m_state.down = false;
    raise_notice("export.back", notif::SEV_INFO, "samples are exported again");
}

void Exporter::settle_failure(uint64_t now_ms) {
    uint64_t shift = std::min<uint64_t>(m_state.failures_in_a_row, 5);
    m_state.retry_at_ms = now_ms + std::min(FIRST_PAUSE_MS << shift, LONGEST_PAUSE_MS);
    m_state.failed++;
    m_state.failures_in_a_row++;
    m_state.error = m_sink->error();
    if (m_state.down) return;
    m_state.down = true;
    raise_notice("export.failed", notif::SEV_WARN, m_state.error);
}

Json::Value Exporter::describe() const {
    Json::Value out(Json::objectValue);
    if (!m_sink) {
        out["type"] = "none";
        return out;
    }
    m_sink->describe(out);
    out["queued"] = Json::UInt64{m_state.queue.size()};
    out["sent"] = Json::UInt64{m_state.sent};
    out["failed"] = Json::UInt64{m_state.failed};
    out["dropped"] = Json::UInt64{m_state.dropped};
    if (!m_state.error.empty()) out["last_error"] = m_state.error;
    return out;
}

}  // namespace corvo::engine
