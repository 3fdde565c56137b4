#include "shards.h"

#include <algorithm>

namespace corvo::engine {
Shards::Shards(Classifiers& classifiers, uint32_t max_flows, unsigned count, DataPath::kind_e kind,
               ClockFn clock)
    : m_max_flows(max_flows) {
    const uint32_t shards = std::clamp<uint32_t>(count, 1, std::max<uint32_t>(max_flows, 1));
    for (uint32_t i = 0; i < shards; i++) {
        const uint32_t share = max_flows / shards + (i < max_flows % shards ? 1 : 0);
        m_shards.push_back(std::make_unique<DataPath>(classifiers, share, kind, clock));
    }
}

void Shards::push(std::vector<api::pkt_>& pkts, bool extended) {
    if (count() == 1) return m_shards[0]->push(pkts, extended);
    deal(pkts);
    for (unsigned shard = 0; shard < count(); shard++)
        m_shards[shard]->push(pkts, m_deal, shard, extended);
}

void Shards::deal(const std::vector<api::pkt_>& pkts) {
    m_deal.resize(pkts.size());
    for (size_t i = 0; i < pkts.size(); i++) {
        DealtPacket& packet = m_deal[i];
        packet.frame = decode_frame(pkts[i].data, pkts[i].len);
        packet.shard = 0;
        if (packet.frame.error != api::PKT_OK) continue;
        packet.key = m_shards[0]->key_of_frame(packet.frame, pkts[i].ns_id);
        packet.shard = shard_of(packet.key);
    }
}

bool Shards::finish(uint64_t budget_ms) {
    const uint64_t share_ms = budget_ms / count();
    return std::all_of(m_shards.begin(), m_shards.end(),
                       [share_ms](const auto& shard) { return shard->finish(share_ms); });
}

void Shards::watch(FlowWatcher* watcher) {
    for (const auto& shard : m_shards)
        shard->watch(watcher);
}

uint32_t Shards::kill_all_flows() {
    uint32_t killed = 0;
    for (const auto& shard : m_shards)
        killed += shard->kill_all_flows();
    return killed;
}

void Shards::remove_all_links() {
    for (const auto& shard : m_shards)
        shard->remove_all_links();
}

void Shards::retire() {
    for (const auto& shard : m_shards)
        shard->retire();
}

bool Shards::wreck(uint32_t budget) {
    return std::all_of(m_shards.begin(), m_shards.end(),
                       [budget](const auto& shard) { return shard->wreck(budget); });
}

uint64_t Shards::errors(api::pkt_error_e error) const {
    uint64_t out = 0;
    for (const auto& shard : m_shards)
        out += shard->errors(error);
    return out;
}

std::map<std::string, Counts> Shards::counts_by_protocol() const {
    std::map<std::string, Counts> out;
    for (const auto& shard : m_shards) {
        for (const auto& [name, counts] : shard->counts_by_protocol()) {
            out[name].settled += counts.settled;
            out[name].open += counts.open;
        }
    }
    return out;
}

std::string Shards::dump(uint32_t limit) const {
    std::string out;
    for (const auto& shard : m_shards) {
        out += shard->dump(limit);
        limit -= std::min(limit, shard->flow_count());
    }
    return out;
}

}  // namespace corvo::engine
