#pragma once
// The flows of one data path, dealt to shards: one DataPath for each worker, a single one without workers.
// Both directions of a conversation are in the same shard.

#include <brumecpd/engine_api.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "data_path.h"

namespace corvo::engine {

class Shards {
 public:
    /**
     * `count`: the number of shards wanted, at least 1; there are at most `max_flows`, which is what they
     * share. Throws Error if `max_flows` is 0.
     */
    Shards(Classifiers& classifiers, uint32_t max_flows, unsigned count, DataPath::kind_e kind,
           ClockFn clock);

    unsigned count() const { return static_cast<unsigned>(m_shards.size()); }
    DataPath& at(unsigned shard) { return *m_shards[shard]; }
    const DataPath& at(unsigned shard) const { return *m_shards[shard]; }

    /** Which shard has the packet's flow. Only for paths with several. */
    unsigned shard_of(const api::pkt_& pkt) const {
        const Frame frame = decode_frame(pkt.data, pkt.len);
        return frame.error == api::PKT_OK ? shard_of(m_shards[0]->key_of_frame(frame, pkt.ns_id)) : 0;
    }
    /** Like DataPath::push, with the packets dealt by flow. */
    void push(std::vector<api::pkt_>& pkts, bool extended);

    // What all shards do, or have in sum; see DataPath.
    bool finish(uint64_t budget_ms);
    void watch(FlowWatcher* watcher);
    uint32_t kill_all_flows();
    void remove_all_links();
    void retire();
    bool wreck(uint32_t budget);
    DataPath::kind_e kind() const { return m_shards[0]->kind(); }
    uint32_t max_flows() const { return m_max_flows; }
    uint32_t flow_count() const { return sum(&DataPath::flow_count); }
    uint64_t created() const { return sum(&DataPath::created); }
    uint32_t undecided() const { return sum(&DataPath::undecided); }
    uint64_t aged() const { return sum(&DataPath::aged); }
    uint64_t evicted() const { return sum(&DataPath::evicted); }
    uint64_t errors(api::pkt_error_e error) const;
    Traffic pushed() const { return sum(&DataPath::pushed); }
    Traffic unclassified() const { return sum(&DataPath::unclassified); }
    std::map<std::string, Counts> counts_by_protocol() const;
    std::string dump(uint32_t limit) const;

    /** Calls `visit` with each shard's classifier, where there is one. */
    template <typename Visit>
    void for_each_classifier(Visit visit) const {
        for (const auto& shard : m_shards)
            if (shard->classifier()) visit(*shard->classifier());
    }

 private:
    template <typename Result>
    std::remove_cvref_t<Result> sum(Result (DataPath::*count)() const) const {
        std::remove_cvref_t<Result> out{};
        for (const auto& shard : m_shards)
            out += ((*shard).*count)();
        return out;
    }
    unsigned shard_of(const DirectedKey& key) const { return plain_hash(key.key) % count(); }
    void deal(const std::vector<api::pkt_>& pkts);

    std::vector<std::unique_ptr<DataPath>> m_shards;
    uint32_t m_max_flows;
    Deal m_deal;  ///< of the current push; kept to reuse its memory
};

}  // namespace corvo::engine
