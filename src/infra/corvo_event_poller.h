#pragma once
// Multiplexes all events with one epoll instance and one timerfd per timed event. The scheduler owns the only
// poller and is the only caller of its dispatching operations.

#include <cstddef>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

#include "infra/corvo_event.h"

namespace corvo {

/** One registration. Owns the timer of a timed event, which the constructor creates and arms. */
class ActiveEvent {
 public:
    ActiveEvent() = default;
    /** Throws corvo::Exception if the timer can't be created; nothing is left open. */
    ActiveEvent(std::shared_ptr<Event> ev, EventState state, unsigned int timeout_ms);
    ActiveEvent(ActiveEvent&& other) noexcept;
    ActiveEvent& operator=(ActiveEvent&& other) noexcept;
    ~ActiveEvent();

    const std::shared_ptr<Event>& event() const { return m_event; }
    EventState state() const { return m_state; }
    int timer_fd() const { return m_timer_fd; }
    unsigned int timeout_ms() const { return m_timeout_ms; }

 private:
    void close_timer();

    std::shared_ptr<Event> m_event;
    EventState m_state = EVENT_STATE_NONE;
    int m_timer_fd = -1;
    unsigned int m_timeout_ms = 0;
};

class EventPoller {
 public:
    /** A descriptor that has fired but hasn't been served yet. */
    using ExpiredEvent = std::pair<int, EventExpireReason>;
    /** Ready descriptors are served before timers; within each group, the order is that of `expire`. */
    struct ExpiredEventCompare {
        bool operator()(const ExpiredEvent& a, const ExpiredEvent& b) const { return a.second < b.second; }
    };

    EventPoller();
    EventPoller(const EventPoller&) = delete;
    EventPoller& operator=(const EventPoller&) = delete;
    /** Closes the epoll instance and drops the records; closing it removes the registrations. */
    ~EventPoller();

    /** Creates the epoll instance if there is none. Throws corvo::Exception. */
    void init();
    /** Registers an event; a timeout of 0 means none. Throws corvo::Exception, leaving nothing registered. */
    void add(const std::shared_ptr<Event>& ev, EventState state, unsigned int timeout_ms);
    /** `ev` must be a live object. False if it wasn't registered. */
    bool remove(const Event* ev);
    bool exists(const Event* ev) const;
    void clear();

    /** Blocks until a descriptor is ready or the timeout has passed; consumes nothing. */
    bool wait(int timeout_ms);
    /**
     * Like `wait`, but keeps what it finds for the next call to serve, which saves a system call there. Call
     * `forget_look_ahead` before running anything that may consume or renew what was found.
     */
    bool look_ahead(int timeout_ms);
    void forget_look_ahead();
    /** Serves at most one event. True if one was served, or if more entries of the batch are waiting. */
    bool handle_pending_events(int timeout_ms);
    /** Whether entries are waiting to be served; needs no system call. */
    bool has_expired() const { return !m_expired.empty(); }
    /** Drops all unserved entries of this descriptor. */
    void remove_expired(int fd);
    /** Calls epoll_wait once for up to 20 events. Logs a failure. */
    void OSPoll(int timeout_ms);

    /** The epoll flags of a state. */
    static uint32_t conv_state_to_flags(EventState state);

 private:
    using active_map = std::unordered_map<int, ActiveEvent>;

    static constexpr int MAX_BATCH = 20;

    active_map::iterator find(const Event* ev);
    /** Like OSPoll, but logs nothing. Returns errno on failure, else 0. */
    int collect(int timeout_ms);
    /** Sleeps for the duration of a wait when there is nothing usable to wait on. */
    static void rest(int timeout_ms);
    /** Puts a ready descriptor at the front of the batch, a timer at the back. */
    void expire(const ExpiredEvent& entry);
    /** Undoes a registration completely and returns its reference. */
    std::shared_ptr<Event> take(active_map::iterator it);
    void handle_pending_event(std::shared_ptr<Event>& ev, EventExpireReason reason, EventState state);

    int m_epoll_fd = -1;
    active_map m_active;  ///< keyed by the event's own descriptor
    // Sorted by ExpiredEventCompare. A vector avoids allocations: batches are small, and every request passes
    // one event through here.
    std::vector<ExpiredEvent> m_expired;
    bool m_looked_ahead = false;  ///< nothing in `m_expired` has been served yet
};

}  // namespace corvo
