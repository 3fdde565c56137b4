#pragma once
// Which methods the engine's state allows, and which state they lead to: one table.

#include <optional>
#include <string>

namespace brumectl::check {

enum engine_state_e : unsigned { UNLOADED = 0, LOADED, ACTIVE, ATTACHED };

class EngineStates {
 public:
    explicit EngineStates(engine_state_e state = UNLOADED) : m_state(state) {}
    /** The state for the text shown by `status`. */
    static std::optional<engine_state_e> from_status(const std::string& words);

    /**
     * Records a method as done and returns why it would have been refused; empty if it is allowed. A
     * refused method still changes the state as intended, so that one mistake isn't reported for every
     * method after it.
     */
    std::string follow(const std::string& method);
    engine_state_e state() const { return m_state; }

 private:
    engine_state_e m_state;
};

}  // namespace brumectl::check
