#pragma once
// Look after look at the flows: which records are due. A flow gets one when it has ended, and every minute
// before that. What a flow had before the first look is nobody's traffic: who begins anew doesn't count it
// twice.

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "client/flows/flow_query.h"
#include "client/flows/flow_record.h"
#include "client/flows/sighting.h"
#include "client/wire/flow_lists.h"

namespace brumectl::flows {

class FlowRecords {
 public:
    static constexpr double ACTIVE_SEC = 60;

    explicit FlowRecords(const FlowQuery& query) : m_query(query) {}

    /** If this throws, the next look compares with the one before. Throws like `flow_lists::read`. */
    std::vector<FlowRecord> look(const flow_lists::Ask& ask, const Moment& moment);
    /** Of all flows, up to the last look, since there is no next one. */
    std::vector<FlowRecord> rest() const;

 private:
    struct Known {
        Sighting seen;
        FlowRecord flow;         ///< with all traffic so far
        Traffic told_to_server;  ///< what of that was in records
        Traffic told_to_client;
        double told_until_sec;  ///< by the monotonic clock, like the next
        double due_sec;         ///< when the next record of a flow that goes on is due
    };
    using Flows = std::unordered_map<std::string, Known>;

    Known follow(const std::string& id, const FlowRecord& flow, const Sighting& seen,
                 const Moment& moment) const;
    /** Adds a record unless nothing has been added to the flow since the previous one. */
    static void add(std::vector<FlowRecord>& out, const Known& known, end_e end);

    const FlowQuery& m_query;
    bool m_is_first = true;
    Flows m_known;
};

}  // namespace brumectl::flows
