#pragma once
// A channel is an event that moves whole messages over a descriptor and hands what arrives to a callback.

#include <functional>
#include <string>

#include "infra/corvo_event.h"

namespace corvo {

/** How a channel operation ended. */
enum state_e : int {
    CHANNEL_OK = 0,
    CHANNEL_SEND_AGAIN = 1,  ///< the send would block
    CHANNEL_RECV_AGAIN = 2,  ///< no message waits
    CHANNEL_TIMEOUT = 3,
    CHANNEL_CLOSED = 5,  ///< the peer has closed, or an empty message was read
    CHANNEL_BROKEN = 6,  ///< nobody is at the other end any more
    CHANNEL_ERROR = 7,   ///< anything else, logged
};

class Channel : public Event {
 public:
    /** Takes a message that arrived; what it puts into `out` goes back as the reply. */
    using handler_cb = std::function<void(state_e state, const std::string& in, std::string& out)>;

    /** Never blocks. Messages aren't empty. */
    virtual state_e push(const std::string& msg) const = 0;
    /** Waits up to `timeout_ms`; 0 or less: takes what is there. `msg` is written with CHANNEL_OK only. */
    virtual state_e pop(std::string& msg, int timeout_ms) const = 0;
    virtual void set_handler(handler_cb handler) = 0;
    virtual handler_cb get_handler() = 0;
};

}  // namespace corvo
