#pragma once
// The data path: packets come in, go through the frame decoder, the flow table and the classifier, and leave
// with what the engine knows about their flows. Exists from activate to deactivate.

#include <brumecpd/engine_api.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "classifier.h"
#include "flow_table.h"
#include "frame.h"
#include "monotonic.h"

namespace corvo::engine {

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

    /** Forgets idle flows. The work per call is bounded; gives the wanted delay to the next call, ms. */
    int tick();

    /** Forgets all flows and gives their number. */
    uint32_t kill_all_flows();
    /** Forgets what was learned about hosts; see Classifier. */
    void remove_all_links() { m_classifier.forget_links(); }
    uint32_t flow_count() const { return m_table.size(); }
    /** One line per flow, at most `limit`. */
    std::string dump(uint32_t limit) const;

 private:
    struct Item {
        Frame frame;
        Flow* flow = nullptr;
        api::pkt_error_e error = api::PKT_OK;
    };

    void handle(const api::pkt_& pkt, Item& item, uint64_t now_ms, bool extended);
    Flow* flow_of(const FlowKey& key, uint64_t now_ms);
    static void answer(const Item& item, api::pkt_& pkt);
    static void answer_extended(const Item& item, api::pkt_& pkt);

    ClockFn m_clock;
    FlowTable m_table;
    Classifier m_classifier;
    std::vector<Item> m_batch;  ///< parallel to the packets of the push under way; kept for its memory
};

}  // namespace corvo::engine
