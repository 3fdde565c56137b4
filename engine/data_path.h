#pragma once
// The data path: packets come in, go through the frame decoder, the flow table and the classifier, and leave
// with what the engine knows about their flows. Exists from activate to deactivate.

#include <brumecpd/engine_api.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "classifier.h"
#include "flow_table.h"
#include "frame.h"
#include "monotonic.h"

namespace corvo::engine {

/** A frame from an interface. */
struct CapturedFrame {
    const uint8_t* data = nullptr;
    uint16_t len = 0;
};

class DataPath {
 public:
    /** Throws Error on a limit of 0 and as Classifier does. */
    explicit DataPath(uint32_t max_flows, ClockFn clock = monotonic_ms);

    /**
     * Classifies the packets in order and fills their output fields, those beyond `protocol`, `cls` and
     * `error` only if `extended`. A flow that is recognised by one of the packets gives its class to all of
     * them. A packet that finds no memory is marked so; other failures of memory throw std::bad_alloc.
     */
    void push(std::vector<api::pkt_>& pkts, bool extended);

    /** Takes the frames into account like pushed ones of name space 0, for which nobody waits. */
    void observe(const CapturedFrame* frames, size_t count);

    /**
     * Forgets idle flows; the work per call is bounded. When most flows have been gone for a minute, gives
     * their memory back to the system at once. Gives the wanted delay to the next call, ms.
     */
    int tick();

    /** Forgets all flows and gives their number. */
    uint32_t kill_all_flows();
    /** Forgets what was learned about hosts; see Classifier. */
    void remove_all_links() { m_classifier.forget_links(); }
    uint32_t flow_count() const { return m_table.size(); }
    const FlowTable& table() const { return m_table; }
    /** Packets and bytes that came by `push`; `flows` isn't used. */
    const Traffic& pushed() const { return m_pushed; }
    /** Of the flows without a class. */
    const Counts& unclassified() const { return m_unclassified; }
    /** Of the others by the name of their protocol. */
    std::map<std::string, Counts> counts_by_protocol() const;
    /** How many packets had that error. */
    uint64_t errors(api::pkt_error_e error) const { return m_errors[error]; }
    /** One line per flow, at most `limit`. */
    std::string dump(uint32_t limit) const;

 private:
    struct Item {
        Frame frame;
        Flow* flow = nullptr;
        api::pkt_error_e error = api::PKT_OK;
    };

    struct Input {
        const uint8_t* data;
        uint16_t len;
        uint32_t ns_id;
    };

    void handle(const Input& input, Item& item, uint64_t now_ms, bool extended);
    void inspect(Flow& flow, const Frame& frame, uint64_t now_ms, bool extended);
    Counts& counts_of(const Flow& flow) {
        return flow.verdict.entry ? flow.verdict.entry->counts : m_unclassified;
    }
    Traffic& traffic_of(const Flow& flow) {
        return flow.decided ? counts_of(flow).settled : counts_of(flow).open;
    }
    void settle(const Flow& flow);
    bool expire(uint64_t now_ms, uint32_t budget);
    Flow* flow_of(const FlowKey& key, uint64_t now_ms);
    void release_memory();
    static void answer(const Item& item, api::pkt_& pkt);
    static void answer_extended(const Item& item, api::pkt_& pkt);

    ClockFn m_clock;
    FlowTable m_table;
    Classifier m_classifier;
    Traffic m_pushed;
    Counts m_unclassified;
    std::array<uint64_t, api::PKT_IPV6_FRAG + 1> m_errors = {};  ///< by pkt_error_e
    uint32_t m_most_flows = 0;                                   ///< since memory was last given back
    uint64_t m_busy_ms = 0;     ///< when the flows were last not much fewer than that
    std::vector<Item> m_batch;  ///< parallel to the packets of the push under way; kept for its memory
};

}  // namespace corvo::engine
