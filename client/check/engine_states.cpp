#include "client/check/engine_states.h"

#include <algorithm>

#include "client/text/fields.h"
#include "client/text/json_access.h"

namespace brumectl::check {

std::string EngineStates::follow(const Method& method) {
    const Json::Value& accepted = (*method.document)["x-states"];
    const Json::Value& leads_to = (*method.document)["x-leads-to"];
    // The accepted states are adjacent: a refused method acts as it would in the nearest of them.
    engine_state_e from = m_state;
    if (!accepted.empty())
        from = std::clamp(m_state, *state_of(accepted[0].asString()),
                          *state_of(accepted[accepted.size() - 1].asString()));
    const bool refused = from != m_state;
    const std::string why = "needs an engine that is " + alternatives(texts_of(accepted)) +
                            "; by then it is " + state_words()[m_state];
    if (!leads_to.isNull()) {
        const engine_state_e to = state_of(leads_to[state_words()[from]].asString()).value_or(from);
        // What is there already stays.
        m_state = to > from ? std::max(m_state, to) : to;
    }
    return refused ? why : "";
}

}  // namespace brumectl::check
