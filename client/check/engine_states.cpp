#include "client/check/engine_states.h"

#include <iterator>

namespace brumectl::check {

namespace {

/** Indexed by engine_state_e; the texts of `status`. */
constexpr const char* STATE_WORDS[] = {"not loaded", "deactivated", "activated", "activated (attached)"};

constexpr const char* FINE = nullptr;
constexpr const char* NO_LOAD = "needs a loaded engine: 'load' must come first";
constexpr const char* NO_ACTIVATE = "needs an active engine: 'load' and 'activate' must come first";
constexpr const char* LOADED_BEFORE = "the engine is loaded already";
constexpr const char* ACTIVE_BEFORE = "the engine is active already";
constexpr const char* STILL_ACTIVE = "the engine is active: 'deactivate' must come first";

/** Both arrays are indexed by the state before. */
struct Rule {
    const char* method;
    const char* refusal[4];
    engine_state_e next[4];  ///< a refused method counts as having had its intended effect
};

constexpr Rule RULES[] = {
    {"load", {FINE, LOADED_BEFORE, LOADED_BEFORE, LOADED_BEFORE}, {LOADED, LOADED, ACTIVE, ATTACHED}},
    {"unload", {FINE, FINE, STILL_ACTIVE, STILL_ACTIVE}, {UNLOADED, UNLOADED, UNLOADED, UNLOADED}},
    {"activate", {NO_LOAD, FINE, ACTIVE_BEFORE, ACTIVE_BEFORE}, {ACTIVE, ACTIVE, ACTIVE, ATTACHED}},
    {"deactivate", {FINE, FINE, FINE, FINE}, {UNLOADED, LOADED, LOADED, LOADED}},
    {"attach", {NO_ACTIVATE, NO_ACTIVATE, FINE, FINE}, {ATTACHED, ATTACHED, ATTACHED, ATTACHED}},
    {"detach", {NO_ACTIVATE, NO_ACTIVATE, FINE, FINE}, {ACTIVE, ACTIVE, ACTIVE, ACTIVE}},
    {"push_pcap", {NO_ACTIVATE, NO_ACTIVATE, FINE, FINE}, {UNLOADED, LOADED, ACTIVE, ATTACHED}},
    {"coffee", {NO_LOAD, FINE, FINE, FINE}, {UNLOADED, LOADED, ACTIVE, ATTACHED}},
    {"collect", {NO_LOAD, FINE, FINE, FINE}, {UNLOADED, LOADED, ACTIVE, ATTACHED}},
    {"health", {NO_LOAD, FINE, FINE, FINE}, {UNLOADED, LOADED, ACTIVE, ATTACHED}},
};

}  // namespace

std::optional<engine_state_e> EngineStates::from_status(const std::string& words) {
    for (unsigned state = UNLOADED; state <= ATTACHED; ++state)
        if (words == STATE_WORDS[state]) return static_cast<engine_state_e>(state);
    return std::nullopt;
}

std::string EngineStates::follow(const std::string& method) {
    for (const Rule& rule : RULES) {
        if (method != rule.method) continue;
        const char* refusal = rule.refusal[m_state];
        m_state = rule.next[m_state];
        return refusal ? refusal : "";
    }
    return {};
}

}  // namespace brumectl::check
