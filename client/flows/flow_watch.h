#pragma once
// Look after look at the flows: which are shown, and which have come and gone in between.

#include <json/value.h>

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "client/flows/flow_lines.h"
#include "client/flows/flow_query.h"
#include "client/flows/sighting.h"
#include "client/wire/flow_lists.h"

namespace brumectl::flows {

struct Shown {
    std::string id;    ///< see flow_text::id
    std::string body;  ///< see FlowLines
    change_e change = STAYS;
};

struct Look {
    std::vector<Shown> shown = {};  ///< in order; those that have ended come last
    uint64_t flows = 0;             ///< all that match, shown or not, like the next
    uint64_t added = 0;
    uint64_t ended = 0;
};

class FlowWatch {
 public:
    /** At most `count` flows are shown; those that have ended are if they were shown before. */
    FlowWatch(const FlowQuery& query, const FlowLines& lines, uint64_t count)
        : m_query(query), m_lines(lines), m_count(count) {}

    /**
     * The flows of the first look are none that stay or are new: they are just there. A flow that no longer
     * matches counts as ended. If this throws, the next look compares with the one before.
     * Throws like `flow_lists::read`.
     */
    Look look(const flow_lists::Ask& ask, const Moment& moment);

 private:
    struct Known {
        Sighting seen = {};
        bool is_new = false;  ///< since the previous look
    };
    using Flows = std::unordered_map<std::string, Known>;

    void add_ended(Look& look, const Flows& now) const;

    const FlowQuery& m_query;
    const FlowLines& m_lines;
    const uint64_t m_count;
    bool m_is_first = true;
    Flows m_known;
    std::vector<Shown> m_shown;  ///< without those that had ended
};

}  // namespace brumectl::flows
