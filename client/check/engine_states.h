#pragma once
// Which methods the engine's state allows, and where they lead: one table.

#include <optional>
#include <string>

namespace brumectl::check {

enum engine_state_e : unsigned { UNLOADED = 0, LOADED, ACTIVE, ATTACHED };

class EngineStates {
 public:
    explicit EngineStates(engine_state_e state = UNLOADED) : m_state(state) {}
    /** The state that `status` tells in words. */
    static std::optional<engine_state_e> from_status(const std::string& words);

    /**
     * Takes a method as done and gives why it would have been refused; empty if it is all right. A refused
     * one still leads where it was meant to, so that one slip isn't told at each method behind it.
     */
    std::string follow(const std::string& method);
    engine_state_e state() const { return m_state; }

 private:
    engine_state_e m_state;
};

}  // namespace brumectl::check
