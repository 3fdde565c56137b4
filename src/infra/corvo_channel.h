#pragma once
// A channel is an event that moves whole messages over a descriptor and passes received ones to a callback.

#include <functional>
#include <string>

#include "infra/corvo_event.h"

namespace corvo {

/** Outcome of a channel operation. */
enum state_e : int {
    CHANNEL_OK = 0,
    CHANNEL_SEND_AGAIN = 1,  ///< the send would block
    CHANNEL_RECV_AGAIN = 2,  ///< no message is waiting
    CHANNEL_TIMEOUT = 3,
    CHANNEL_CLOSED = 5,  ///< the peer has closed, or an empty message was read
    CHANNEL_BROKEN = 6,  ///< the other end no longer exists
    CHANNEL_ERROR = 7,   ///< anything else; logged
};

class Channel : public Event {
 public:
    /** Receives a message; whatever it puts in `out` is sent back as the reply. */
    using handler_cb = std::function<void(state_e state, const std::string& in, std::string& out)>;

    /** Never blocks. `msg` must not be empty. */
    virtual state_e push(const std::string& msg) const = 0;
    /** Waits up to `timeout_ms`; 0 or less means not at all. Sets `msg` only on CHANNEL_OK. */
    virtual state_e pop(std::string& msg, int timeout_ms) const = 0;
    virtual void set_handler(handler_cb handler) = 0;
    virtual handler_cb get_handler() = 0;
};

}  // namespace corvo
