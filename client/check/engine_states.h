#pragma once
// Which methods the engine's state allows, and where they lead, by the method table.

#include <string>

#include "client/text/engine_state.h"
#include "client/text/method_table.h"

namespace brumectl::check {

class EngineStates {
 public:
    explicit EngineStates(engine_state_e state = UNLOADED) : m_state(state) {}

    /**
     * Takes a method as done and returns why it would have been refused; empty if it is all right. A refused
     * one still leads where it was meant to, so that one slip isn't told at each method behind it.
     */
    std::string follow(const Method& method);
    engine_state_e state() const { return m_state; }

 private:
    engine_state_e m_state;
};

}  // namespace brumectl::check
