#pragma once
// A data path: packets come in, pass the frame decoder, the flow table and the classifier, and leave with
// what the engine knows about their flows. There is one for live traffic, which forgets idle flows, and one
// for each capture being classified, which keeps them.

#include <brumecpd/engine_api.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "classifiers.h"
#include "flow_table.h"
#include "flow_watcher.h"
#include "frame.h"
#include "monotonic.h"
#include "packet_ring.h"

namespace corvo::engine {

/** What a push's packets are, and the shard that each is for; see Shards. */
struct DealtPacket {
    Frame frame;
    DirectedKey key;  ///< only if the frame has no error
    unsigned shard = 0;
};
using Deal = std::vector<DealtPacket>;

class DataPath {
 public:
    enum kind_e {
        LIVE,     ///< flows age
        CAPTURE,  ///< they don't; flows in different VLANs are distinct
    };

    /** The classifier is taken with the first packet. Throws Error if `max_flows` is 0. */
    DataPath(Classifiers& classifiers, uint32_t max_flows, kind_e kind = LIVE, ClockFn clock = monotonic_ms);
    ~DataPath();
    DataPath(const DataPath&) = delete;
    DataPath& operator=(const DataPath&) = delete;

    /**
     * Classifies the packets in order and fills their output fields; those other than `protocol`, `cls` and
     * `error` only if `extended`. If one packet identifies a flow, all of the flow's packets in this call get
     * that class. A packet for which memory runs out is marked PKT_NO_MEM; other allocation failures throw
     * std::bad_alloc. Throws Error if no classifier can be made.
     */
    void push(std::vector<api::pkt_>& pkts, bool extended);
    /** The same for those that are dealt to `shard`. Leaves the others alone. */
    void push(std::vector<api::pkt_>& pkts, const Deal& deal, unsigned shard, bool extended);
    /**
     * Processes one packet, which is counted like a pushed one, but returns nothing about it. If no
     * classifier can be made, it counts as PKT_NO_MEM.
     */
    void take(const unsigned char* data, uint16_t len, uint32_t ns_id, uint64_t now_ms) noexcept;
    DirectedKey key_of_frame(const Frame& frame, uint32_t ns_id) const {
        return key_of(frame, ns_id, m_kind == CAPTURE ? frame.vlan : 0);
    }

    /** Processes captured frames like pushed packets in name space 0, but returns no results. */
    void observe(const CapturedFrame* frames, size_t count);

    /**
     * Forgets idle flows; the work per call is bounded. Once most flows have been gone for a minute, their
     * memory is returned to the system in one go. Returns the delay until the next call, ms.
     */
    int tick();

    /** Gives up on undecided flows for at most `budget_ms`. True if none are left. */
    bool finish(uint64_t budget_ms);

    /** From now on reports flows to `watcher`, which must outlive this path; null: to nobody. */
    void watch(FlowWatcher* watcher) { m_watcher = watcher; }

    /** Forgets all flows and returns how many there were. */
    uint32_t kill_all_flows();
    /** Forgets what was learned about hosts; see Classifier. */
    void remove_all_links();
    /** Ends the use of this path, short of destroying it. A clean classifier is handed back right away. */
    void retire();
    /** Frees some of a retired path's flows. True when none are left. */
    bool wreck(uint32_t budget) { return m_table.wreck(budget); }

    kind_e kind() const { return m_kind; }
    uint32_t flow_count() const { return m_table.size(); }
    const FlowTable& table() const { return m_table; }
    /** Number of flows ever added. */
    uint64_t created() const { return m_table.created(); }
    /** Null before the first packet. */
    const Classifier* classifier() const { return m_classifier.get(); }
    /** Packets and bytes received by `push`; `flows` is unused. */
    const Traffic& pushed() const { return m_pushed; }
    /** Traffic of flows without a class. */
    const Traffic& unclassified() const { return m_unclassified; }
    /** Traffic by protocol name; traffic without a class is under UNCLASSIFIED. */
    std::map<std::string, Counts> counts_by_protocol() const;
    /** Flows that nDPI is still inspecting. */
    uint32_t undecided() const { return m_undecided; }
    /** Flows forgotten because they were idle for too long. */
    uint64_t aged() const { return m_aged; }
    /** Flows forgotten early because the table was full. */
    uint64_t evicted() const { return m_evicted; }
    /** Number of packets with this error. */
    uint64_t errors(api::pkt_error_e error) const { return m_errors[error]; }
    /** One line per flow, at most `limit` lines. */
    std::string dump(uint32_t limit) const;

 private:
    struct Outcome {
        Flow* flow = nullptr;
        api::pkt_error_e error = api::PKT_OK;
    };

    void prepare();
    Outcome handle(const Frame& frame, uint32_t ns_id, uint32_t wire_len, uint64_t now_ms);
    Outcome handle(const Frame& frame, const DirectedKey& directed, uint32_t wire_len, uint64_t now_ms);
    Outcome failed(api::pkt_error_e error, Flow* flow = nullptr);
    void count(Flow& flow, bool from_upper, uint32_t wire_len, uint64_t now_ms);
    template <typename Decide>
    void let_decide(Flow& flow, Decide decide);
    // Inline, as is all that each frame needs and that is small: counts then stay in registers.
    void add_traffic(const Verdict& verdict, const Traffic& traffic) {
        (verdict.entry ? verdict.entry->traffic : m_unclassified) += traffic;
        if (verdict.entry && verdict.guessed) verdict.entry->guessed += traffic;
    }
    void take_traffic(const Verdict& verdict, const Traffic& traffic);
    Traffic& open_of(const Verdict& verdict);
    Flow* flow_of(const FlowKey& key, uint64_t now_ms);
    void make_room(uint64_t now_ms);
    void forget_looks();
    bool is_due(const Flow& flow, uint64_t now_ms) const;
    void give_up(Flow& flow);
    void forget(Flow& flow, uint64_t& counter, FlowWatcher::why_e why);
    void visit(Flow& flow, uint64_t now_ms);
    void release_memory();
    static void answer(const Outcome& outcome, api::pkt_& pkt);
    static void answer_extended(const Outcome& outcome, const Frame& frame, api::pkt_& pkt);

    ClockFn m_clock;
    kind_e m_kind;
    Classifiers& m_classifiers;
    std::unique_ptr<Classifier> m_classifier;
    FlowTable m_table;
    FlowWatcher* m_watcher = nullptr;
    Traffic m_pushed;
    Traffic m_unclassified;
    Traffic m_unclassified_open;  ///< the part that may still get a class
    uint32_t m_undecided = 0;
    uint32_t m_finish_at = 0;  ///< table entry at which `finish` resumes
    uint64_t m_aged = 0;
    uint64_t m_evicted = 0;
    std::array<uint64_t, api::PKT_IPV6_FRAG + 1> m_errors = {};  ///< by pkt_error_e
    uint32_t m_most_flows = 0;                                   ///< since memory was last returned
    uint64_t m_busy_ms = 0;  ///< when the flow count was last close to `m_most_flows`
    // Searches for a flow to evict from a full table. Once all flows were looked at in vain, none needs to be
    // looked at before the idlest of them may go: they can only become less idle.
    uint64_t m_full_until_ms = 0;
    uint32_t m_looked_at = 0;           ///< in a row, without a flow that may go
    uint64_t m_idlest_ms = UINT64_MAX;  ///< the least `last_seen_ms` among them
    // Parallel to the packets of the current push; kept to reuse their memory.
    std::vector<Outcome> m_outcomes;
    std::vector<Frame> m_frames;  ///< only for extended answers
};

}  // namespace corvo::engine
