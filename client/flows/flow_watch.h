#pragma once
// Look after look at the flows: which are shown, and which have come and gone in between.

#include <json/value.h>

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "client/flows/flow_lines.h"
#include "client/flows/flow_query.h"
#include "client/wire/flow_lists.h"

namespace brumectl::flows {

/** When a look is taken, by this machine's clocks. */
struct Moment {
    double now_sec = 0;     ///< since 1970
    double offset_sec = 0;  ///< from the monotonic clock to that: what the clock was set by changes it

    static Moment now();
};

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
    /** What must not shrink while a flow with these ends is still the same one. */
    struct Known {
        uint64_t packets = 0;
        double lasted_sec = 0;
        double last_seen_sec = 0;  ///< by the monotonic clock
        bool is_new = false;       ///< since the previous look
    };
    using Flows = std::unordered_map<std::string, Known>;

    Known know(const std::string& id, const Json::Value& flow, const Moment& moment) const;
    void add_ended(Look& look, const Flows& now) const;

    const FlowQuery& m_query;
    const FlowLines& m_lines;
    const uint64_t m_count;
    bool m_is_first = true;
    Flows m_known;
    std::vector<Shown> m_shown;  ///< without those that had ended
};

}  // namespace brumectl::flows
