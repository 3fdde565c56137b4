#include "client/flows/ipfix_exporter.h"

#include <algorithm>

#include "client/failure.h"
#include "utils/clock.h"

namespace brumectl::flows {

namespace {

/** Over UDP, a collector that has begun anew understands nothing for this long at most. */
constexpr uint64_t REPEAT_MS = 10000;
/** Records of a batch: what a failure may send twice. */
constexpr size_t BATCH = 50;

}  // namespace

void IpfixExporter::keep(const std::vector<FlowRecord>& records) {
    m_kept.insert(m_kept.end(), records.begin(), records.end());
    const size_t above = m_kept.size() - std::min(m_kept.size(), MOST_KEPT);
    m_kept.erase(m_kept.begin(), m_kept.begin() + static_cast<std::ptrdiff_t>(above));
    m_dropped += above;
}

uint64_t IpfixExporter::take_dropped() {
    const uint64_t dropped = m_dropped;
    m_dropped = 0;
    return dropped;
}

void IpfixExporter::connect(const IpfixStyle& style) {
    if (m_socket && (m_style != style || m_socket->is_gone())) m_socket.reset();
    if (m_socket) return;
    m_messages = std::make_unique<IpfixMessages>(style);
    m_socket = std::make_unique<IpfixSocket>(m_collector, m_timeout_ms);
    m_style = style;
    m_repeat_ms = corvo::monotonic_ms() + REPEAT_MS;
}

void IpfixExporter::send_some() {
    const size_t count = std::min(m_kept.size(), BATCH);
    const auto end = m_kept.begin() + static_cast<std::ptrdiff_t>(count);
    for (const std::string& message : m_messages->encode({m_kept.begin(), end}))
        m_socket->send(message);
    m_kept.erase(m_kept.begin(), end);
}

void IpfixExporter::send(const std::vector<FlowRecord>& records, IpfixStyle style) {
    style.max_bytes = IpfixSocket::max_bytes(m_collector);
    keep(records);
    if (m_kept.empty()) return;
    connect(style);
    if (!m_collector.tcp && corvo::monotonic_ms() >= m_repeat_ms) {
        m_messages->repeat_templates();
        m_repeat_ms = corvo::monotonic_ms() + REPEAT_MS;
    }
    try {
        while (!m_kept.empty())
            send_some();
    } catch (const std::exception&) {
        m_socket.reset();  // half a message may have been sent
        throw;
    }
}

}  // namespace brumectl::flows
