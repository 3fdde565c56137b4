#include "client/flows/flow_watch.h"

#include "client/flows/selection.h"
#include "client/text/flow_text.h"

namespace brumectl::flows {

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
        const Sighting seen = Sighting::of(flow, moment);
        const auto before = m_known.find(id);
        const bool is_new = !m_is_first && (before == m_known.end() || !seen.continues(before->second.seen));
        now.insert_or_assign(id, Known{seen, is_new});
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
