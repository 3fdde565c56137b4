#include "client/flows/flow_records.h"

#include <netinet/in.h>

#include <algorithm>
#include <cmath>

#include "client/text/flow_text.h"

namespace brumectl::flows {

namespace {

/** A TCP connection that nobody closed is forgotten far later than one that was. */
constexpr double CLOSED_WITHIN_SEC = 60;
/** Beyond it, what an engine says of times can't be meant. */
constexpr double LONGEST_SEC = 1e9;

end_e end_of(const FlowRecord& flow, double silent_sec) {
    return flow.protocol == IPPROTO_TCP && silent_sec < CLOSED_WITHIN_SEC ? ENDED : IDLE;
}

}  // namespace

FlowRecords::Known FlowRecords::follow(const std::string& id, const FlowRecord& flow, const Sighting& seen,
                                       const Moment& moment) const {
    Known out{seen, flow, {}, {}, seen.first_sec, moment.monotonic_sec() + ACTIVE_SEC};
    const auto before = m_known.find(id);
    if (m_is_first) {
        out.told_to_server = flow.to_server;
        out.told_to_client = flow.to_client;
        out.told_until_sec = seen.last_sec;
    } else if (before != m_known.end() && seen.continues(before->second.seen)) {
        out.told_to_server = before->second.told_to_server;
        out.told_to_client = before->second.told_to_client;
        out.told_until_sec = before->second.told_until_sec;
        out.due_sec = before->second.due_sec;
    }
    return out;
}

void FlowRecords::add(std::vector<FlowRecord>& out, const Known& known, end_e end) {
    FlowRecord record = known.flow;
    record.to_server = record.to_server - known.told_to_server;
    record.to_client = record.to_client - known.told_to_client;
    if (record.to_server == Traffic() && record.to_client == Traffic()) return;
    // The flow's own start may be by a clock that has been set since.
    const double lasted_ms = std::clamp(known.seen.last_sec - known.told_until_sec, 0.0, LONGEST_SEC) * 1000;
    record.start_ms = record.end_ms - std::min(record.end_ms, static_cast<uint64_t>(std::llround(lasted_ms)));
    record.end = end;
    out.push_back(std::move(record));
}

std::vector<FlowRecord> FlowRecords::look(const flow_lists::Ask& ask, const Moment& moment) {
    std::vector<FlowRecord> out;
    Flows now;
    flow_lists::read(ask, flow_lists::FLOWS, m_query.params(), [&](const Json::Value& row) {
        if (!m_query.matches(row, moment.now_sec)) return true;
        const std::optional<FlowRecord> flow = FlowRecord::read(row);
        if (!flow) return true;
        const std::string id = flow_text::id(row);
        now.insert_or_assign(id, follow(id, *flow, Sighting::of(row, moment), moment));
        return true;
    });
    for (const auto& [id, known] : m_known) {
        const auto found = now.find(id);
        if (found == now.end() || !found->second.seen.continues(known.seen))
            add(out, known, end_of(known.flow, moment.monotonic_sec() - known.seen.last_sec));
    }
    for (auto& [id, known] : now) {
        if (moment.monotonic_sec() < known.due_sec) continue;
        add(out, known, ACTIVE);
        known.told_to_server = known.flow.to_server;
        known.told_to_client = known.flow.to_client;
        known.told_until_sec = known.seen.last_sec;
        known.due_sec = moment.monotonic_sec() + ACTIVE_SEC;
    }
    m_known = std::move(now);
    m_is_first = false;
    return out;
}

std::vector<FlowRecord> FlowRecords::rest() const {
    std::vector<FlowRecord> out;
    for (const auto& [id, known] : m_known)
        add(out, known, FORCED);
    return out;
}

}  // namespace brumectl::flows
