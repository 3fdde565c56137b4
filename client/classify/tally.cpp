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

void Tally::add(const Tally& other) {
    for (const auto& [name, volume] : other.protocols)
        of(name) += volume;
    unclassified += other.unclassified;
    not_ip += other.not_ip;
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
    return sum += not_ip;
}

void Course::set_range(uint64_t first_usec, uint64_t last_usec) {
    m_first_usec = first_usec;
    m_span_usec = std::max<uint64_t>(last_usec - first_usec + 1, STEPS);
}

void Course::add(const std::string& protocol, uint64_t usec, uint64_t len) {
    const uint64_t since = usec > m_first_usec ? usec - m_first_usec : 0;
    // Dividing first: a hostile time may be too large for a product.
    const uint64_t step = since / std::max<uint64_t>(m_span_usec / STEPS, 1);
    slot(m_protocols, protocol)[std::min<uint64_t>(step, STEPS - 1)] += len;
}

}  // namespace brumectl
