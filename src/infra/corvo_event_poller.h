#pragma once
// Multiplexes all events with one epoll instance and one timerfd per timed event. The scheduler owns exactly
// one poller and is the only caller of its dispatching operations.

#include <cstddef>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

#include "infra/corvo_event.h"

namespace corvo {

/** One registration. Owns the timer of a timed event: constructing with a time-out creates and arms it. */
class ActiveEvent {
 public:
    ActiveEvent() = default;
    /** @throws corvo::Exception when the timer can't be made; nothing is left open. */
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
    /** A descriptor that has fired and has not been served yet. */
    using ExpiredEvent = std::pair<int, EventExpireReason>;
    /** Ready descriptors are served before timers; their order among equals is that of `expire`. */
    struct ExpiredEventCompare {
        bool operator()(const ExpiredEvent& a, const ExpiredEvent& b) const { return a.second < b.second; }
    };

    EventPoller();
    EventPoller(const EventPoller&) = delete;
    EventPoller& operator=(const EventPoller&) = delete;
    /** Closes the epoll instance and drops the records; the registrations go away with the instance. */
    ~EventPoller();

    /** Creates the epoll instance if there is none. @throws corvo::Exception */
    void init();
    /** Registers an event; time-out 0 means none. @throws corvo::Exception, and nothing stays registered. */
    void add(const std::shared_ptr<Event>& ev, EventState state, unsigned int timeout_ms);
    /** `ev` must be a live object. False if it wasn't registered. */
    bool remove(const Event* ev);
    bool exists(const Event* ev) const;
    void clear();

    /** Blocks until a descriptor is ready or the time is over; consumes nothing. */
    bool wait(int timeout_ms);
    /**
     * The same, but what it finds is what the next call serves, which saves that one a system call. To be
     * forgotten before anything runs that may use up or renew what was found.
     */
    bool look_ahead(int timeout_ms);
    void forget_look_ahead();
    /** Serves at most one event. True if one was served, or if more entries of the batch wait. */
    bool handle_pending_events(int timeout_ms);
    /** Entries wait to be served: no system call is needed to know. */
    bool has_expired() const { return !m_expired.empty(); }
    /** Drops every unserved entry of this descriptor. */
    void remove_expired(int fd);
    /** One epoll_wait of up to 20 events; a failure is logged. */
    void OSPoll(int timeout_ms);

    /** The epoll flags of a state. */
    static uint32_t conv_state_to_flags(EventState state);

 private:
    using active_map = std::unordered_map<int, ActiveEvent>;

    static constexpr int MAX_BATCH = 20;

    active_map::iterator find(const Event* ev);
    /** OSPoll that logs nothing; gives what errno says of a failure, else 0. */
    int collect(int timeout_ms);
    /** Spends the time of a wait for which there is nothing, or nothing that works, to wait on. */
    static void rest(int timeout_ms);
    /** Puts a ready descriptor at the very front of the batch, a timer at the very back. */
    void expire(const ExpiredEvent& entry);
    /** Undoes a registration completely and hands out its reference. */
    std::shared_ptr<Event> take(active_map::iterator it);
    void handle_pending_event(std::shared_ptr<Event>& ev, EventExpireReason reason, EventState state);

    int m_epoll_fd = -1;
    active_map m_active;  ///< keyed by the event's own descriptor
    // Sorted by ExpiredEventCompare. A vector, since a batch is small and one event passes through here per
    // request: no allocation.
    std::vector<ExpiredEvent> m_expired;
    bool m_looked_ahead = false;  ///< nothing of `m_expired` has been served yet
};

}  // namespace corvo
