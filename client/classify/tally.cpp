#include "client/classify/tally.h"

#include <algorithm>

namespace brumectl {

namespace {

template <class T>
T& slot(std::map<std::string, T>& map, const std::string& name) {
    auto found = map.find(name);
    if (found != map.end()) return found->second;
    return map[map.size() < MAX_PROTOCOLS ? name : OTHER];
}

}  // namespace

Volume& Tally::of(const std::string& protocol) {
    return slot(protocols, protocol);
}

void Tally::add_undecoded(const std::string& reason, uint64_t packets, uint64_t bytes) {
    undecoded.packets += packets;
    undecoded.bytes += bytes;
    if (packets > 0) slot(reasons, reason) += packets;
}

void Tally::add(const Tally& other) {
    for (const auto& [name, volume] : other.protocols)
        of(name) += volume;
    unclassified += other.unclassified;
    undecoded += other.undecoded;
    for (const auto& [reason, packets] : other.reasons)
        slot(reasons, reason) += packets;
}

Volume Tally::classified() const {
    Volume sum;
    for (const auto& [name, volume] : protocols)
        sum += volume;
    return sum;
}

Volume Tally::total() const {
    Volume sum = classified();
    sum += unclassified;
    return sum += undecoded;
}

void Course::add(const std::string& protocol, uint64_t usec, uint64_t len) {
    if (m_steps == 0) m_first_usec = usec;
    const uint64_t since = usec > m_first_usec ? usec - m_first_usec : 0;
    while (since / m_step_usec >= STEPS)
        widen();
    const auto step = static_cast<size_t>(since / m_step_usec);
    slot(m_protocols, protocol)[step] += len;
    m_steps = std::max(m_steps, step + 1);
}

void Course::widen() {
    m_step_usec *= 2;
    m_steps = (m_steps + 1) / 2;
    for (auto& [name, bytes] : m_protocols)
        for (size_t step = 0; step < STEPS; ++step)
            bytes[step] = 2 * step < STEPS ? bytes[2 * step] + bytes[2 * step + 1] : 0;
}

}  // namespace brumectl
