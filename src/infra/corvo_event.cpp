// Out of line because libraries with their own events bind to these.
#include "infra/corvo_event.h"

namespace corvo {

Event::Event() = default;

Event::~Event() = default;

EventRC Event::done() const {
    return {EventRC::ACTION_DONE, 0, EVENT_STATE_NONE};
}

EventRC Event::resched(unsigned int timeout_ms) const {
    return {EventRC::ACTION_REARM, timeout_ms, EVENT_STATE_NONE};
}

EventRC Event::resched(EventState state) const {
    return {EventRC::ACTION_REARM, 0, state};
}

EventRC Event::resched(EventState state, unsigned int timeout_ms) const {
    return {EventRC::ACTION_REARM, timeout_ms, state};
}

}  // namespace corvo
