#include "client/flows/flow_watch.h"

#include "client/flows/selection.h"
#include "client/text/flow_text.h"
#include "client/text/json_access.h"
#include "utils/clock.h"

namespace brumectl::flows {

namespace {

/** The engine's times and our clocks are in whole milliseconds, and aren't read at the same moment. */
constexpr double JITTER_SEC = 0.005;

double seconds_of(const Json::Value& flow, const char* member) {
    const Json::Value& value = member_of(flow, member);
    return value.isNumeric() ? value.asDouble() : 0;
}

}  // namespace

Moment Moment::now() {
    const double now_sec = static_cast<double>(corvo::realtime_ms()) / 1000;
    return {now_sec, now_sec - static_cast<double>(corvo::monotonic_ms()) / 1000};
}

FlowWatch::Known FlowWatch::know(const std::string& id, const Json::Value& flow, const Moment& moment) const {
    const double first_sec = seconds_of(flow, "first_seen") - moment.offset_sec;
    const double last_sec = seconds_of(flow, "last_seen") - moment.offset_sec;
    Known now{count_of(member_of(flow, "packets")), last_sec - first_sec, last_sec, false};
    const auto found = m_known.find(id);
    now.is_new = found == m_known.end() || now.packets < found->second.packets ||
                 now.lasted_sec < found->second.lasted_sec - JITTER_SEC ||
                 first_sec > found->second.last_seen_sec + JITTER_SEC;
    return now;
}

void FlowWatch::add_ended(Look& look, const Flows& now) const {
    const auto has_ended = [&now](const std::string& id) {
        const auto found = now.find(id);
        return found == now.end() || found->second.is_new;
    };
    for (const auto& [id, known] : m_known)
        look.ended += has_ended(id) ? 1 : 0;
    for (const Shown& shown : m_shown)
        if (has_ended(shown.id)) look.shown.push_back({shown.id, shown.body, HAS_ENDED});
}

Look FlowWatch::look(const flow_lists::Ask& ask, const Moment& moment) {
    Look out;
    Flows now;
    Selection<Shown> selection(m_query, m_count);
    flow_lists::read(ask, flow_lists::FLOWS, m_query.params(), [&](const Json::Value& flow) {
        if (!m_query.matches(flow, moment.now_sec)) return true;
        const std::string id = flow_text::id(flow);
        const Known known = know(id, flow, moment);
        const bool is_new = known.is_new && !m_is_first;
        now.insert_or_assign(id, known);
        out.added += is_new ? 1 : 0;
        selection.add(flow, {id, m_lines.body(flow, moment.now_sec), is_new ? IS_NEW : STAYS});
        return true;
    });
    out.flows = now.size();
    out.shown = selection.take();
    const std::vector<Shown> shown = out.shown;
    add_ended(out, now);
    m_known = std::move(now);
    m_shown = shown;
    m_is_first = false;
    return out;
}

}  // namespace brumectl::flows
