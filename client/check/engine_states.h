#pragma once
// Which methods the engine's state allows, and which state they lead to, according to the method table.

#include <string>

#include "client/text/engine_state.h"
#include "client/text/method_table.h"

namespace brumectl::check {

class EngineStates {
 public:
    explicit EngineStates(engine_state_e state = UNLOADED) : m_state(state) {}

    /**
     * Records a method as done and returns why it would have been refused; empty if it is allowed. A refused
     * method still changes the state as intended, so that one mistake isn't reported for every method after
     * it.
     */
    std::string follow(const Method& method);
    engine_state_e state() const { return m_state; }

 private:
    engine_state_e m_state;
};

}  // namespace brumectl::check
