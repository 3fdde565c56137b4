#pragma once
// An event waits on a descriptor, with or without a timeout, and is one-shot: when it fires it leaves the
// poller completely, `do_work` runs with nothing registered, and its result decides whether it is
// registered again.

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace corvo {

enum EventState : uint32_t {
    EVENT_STATE_NONE = 0,  ///< not specified; in a re-arm request, keeps the current state
    EVENT_STATE_READ = 2,
    EVENT_STATE_WRITE = 3,
    EVENT_STATE_READ_WRITE = 4,
};

enum EventExpireReason : uint32_t {
    EVENT_EXPIRE_READY = 0,    ///< the descriptor is ready
    EVENT_EXPIRE_TIMEOUT = 1,  ///< the timer ran out
};

struct EventRC {
    static constexpr uint32_t ACTION_REARM = 0;
    static constexpr uint32_t ACTION_DONE = 1;

    uint32_t action;
    uint32_t timeout_ms;  ///< timeout of the new registration; 0 for none
    EventState state;     ///< state of the new registration; EVENT_STATE_NONE keeps the one it fired in
};

/**
 * Owned by `shared_ptr`; the poller holds one reference while the event is registered. Engine libraries may
 * have their own events, so fields and virtual functions must stay in this order.
 */
class Event {
 public:
    using completion_cb = std::function<void(Event*)>;

    Event();
    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;
    virtual ~Event();

    virtual std::string get_name() const = 0;
    virtual EventRC do_work(const EventExpireReason& reason) = 0;

    /** Must be above 0 while the event is registered: inside the poller, the sign encodes the reason. */
    int fd() const { return m_fd; }
    /** Adds a callback to run when the event has ended with `done()`. */
    void add_completion_cb(completion_cb cb) { m_completion_cbs.push_back(std::move(cb)); }
    const std::vector<completion_cb>& completion_cbs() const { return m_completion_cbs; }

 protected:
    EventRC done() const;
    EventRC resched(unsigned int timeout_ms) const;
    EventRC resched(EventState state) const;
    EventRC resched(EventState state, unsigned int timeout_ms) const;

    int m_fd = -1;

 private:
    std::vector<completion_cb> m_completion_cbs;
};

}  // namespace corvo
