#include "exporter.h"

#include <iterator>

namespace corvo::engine {
namespace {

constexpr uint64_t IDLE_MS = 1000;
/** While a text is being sent. */
constexpr uint64_t BUSY_MS = 20;

}  // namespace

void Exporter::configure(const api::ExporterConfig& config) {
    std::unique_ptr<ExportSink> sink = make_sink(config, Payload::SAMPLE);
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
    const uint64_t delay_ms = send(now_ms);
    m_state.backoff.raise_notices();
    return delay_ms;
}

uint64_t Exporter::send(uint64_t now_ms) {
    State& state = m_state;
    for (size_t i = 0; i < MAX_QUEUED && !state.queue.empty(); i++) {
        const uint64_t wait_ms = state.backoff.wait_ms(now_ms);
        if (!state.sending && wait_ms > 0) return wait_ms;
        ExportSink::Outcome outcome = state.sending ? m_sink->poll() : m_sink->start(state.queue.front());
        state.sending = outcome == ExportSink::PENDING;
        if (state.sending) return BUSY_MS;
        settle(outcome, now_ms);
    }
    return IDLE_MS;
}

void Exporter::settle(ExportSink::Outcome outcome, uint64_t now_ms) {
    if (outcome == ExportSink::SENT) {
        m_state.bytes -= m_state.queue.front().size();
        m_state.queue.pop_front();
        m_state.sent++;
        m_state.backoff.succeeded();
        return;
    }
    m_state.backoff.failed(m_sink->error(), now_ms);
    if (outcome == ExportSink::REFUSED) drop(m_state.queue.begin());
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
    out["failed"] = Json::UInt64{m_state.backoff.failures()};
    out["dropped"] = Json::UInt64{m_state.dropped};
    if (!m_state.backoff.error().empty()) out["last_error"] = m_state.backoff.error();
    return out;
}

}  // namespace corvo::engine
