#include "infra/corvo_event_poller.h"

#include <sys/epoll.h>
#include <sys/timerfd.h>

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <utility>
#include <vector>

#include "infra/corvo_logger.h"
#include "infra/exports/corvo_shims.h"
#include "utils/exception.h"
#include "utils/unique_fd.h"

namespace corvo {
namespace {

const std::string COMP = "evpoll";
const std::string SCHED_COMP = "sched";

constexpr uint32_t BASE_FLAGS = EPOLLPRI | EPOLLRDHUP;

timespec to_timespec(unsigned int ms) {
    return {static_cast<time_t>(ms / 1000), static_cast<long>(ms % 1000) * 1000000};
}

int add_to_epoll(int epoll_fd, int fd, uint32_t flags, int user_data) {
    epoll_event ev{};
    ev.events = flags;
    ev.data.fd = user_data;
    return cv_epoll_ctl(epoll_fd, EPOLL_CTL_ADD, fd, &ev);
}

}  // namespace

ActiveEvent::ActiveEvent(std::shared_ptr<Event> ev, EventState state, unsigned int timeout_ms)
    : m_event(std::move(ev)), m_state(state), m_timeout_ms(timeout_ms) {
    if (timeout_ms == 0) return;
    UniqueFd timer(lift_fd(cv_timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)));
    if (!timer) throw Exception("failed to create event timer fd");
    const itimerspec once{{0, 0}, to_timespec(timeout_ms)};
    if (cv_timerfd_settime(timer.get(), 0, &once, nullptr) != 0)
        throw Exception("failed to set event timeout");
    m_timer_fd = timer.release();
}

ActiveEvent::ActiveEvent(ActiveEvent&& other) noexcept {
    *this = std::move(other);
}

ActiveEvent& ActiveEvent::operator=(ActiveEvent&& other) noexcept {
    if (this == &other) return *this;
    close_timer();
    m_event = std::move(other.m_event);
    m_state = other.m_state;
    m_timer_fd = std::exchange(other.m_timer_fd, -1);
    m_timeout_ms = std::exchange(other.m_timeout_ms, 0);
    return *this;
}

ActiveEvent::~ActiveEvent() {
    close_timer();
}

void ActiveEvent::close_timer() {
    if (m_timer_fd > 0) cv_close(m_timer_fd);
    m_timer_fd = -1;
}

EventPoller::EventPoller() {
    m_expired.reserve(MAX_BATCH);
}

EventPoller::~EventPoller() {
    if (m_epoll_fd >= 0) cv_close(m_epoll_fd);
    // Destroying a record may destroy an event that calls back here; it must find an empty table.
    const active_map dying = std::exchange(m_active, {});
}

void EventPoller::init() {
    if (m_epoll_fd >= 0) return;
    m_epoll_fd = lift_fd(cv_epoll_create1(0));
    if (m_epoll_fd < 0) throw Exception("failed to create event poller", errno);
}

void EventPoller::add(const std::shared_ptr<Event>& ev, EventState state, unsigned int timeout_ms) {
    CORVO_LOG(DEBUG, COMP, "adding event '%s'", ev->get_name().c_str());
    init();
    ActiveEvent record(ev, state, timeout_ms);
    const int fd = ev->fd();
    const uint32_t flags = conv_state_to_flags(state);
    if (add_to_epoll(m_epoll_fd, fd, flags, fd) != 0) throw Exception("failed to add event to poller", errno);
    // The sign of the user data distinguishes a timer from its descriptor, so no lookup is needed. The timer
    // gets the descriptor's flags too: its expiry is only seen in states that wait for reading.
    if (record.timer_fd() >= 0 && add_to_epoll(m_epoll_fd, record.timer_fd(), flags, -fd) != 0) {
        const int err = errno;
        cv_epoll_ctl(m_epoll_fd, EPOLL_CTL_DEL, fd, nullptr);
        throw Exception("failed to add event to poller", err);
    }
    m_active[fd] = std::move(record);
}

bool EventPoller::remove(const Event* ev) {
    auto it = m_active.find(ev->fd());
    // An event may have changed its descriptor since it was registered.
    if (it == m_active.end() || it->second.event().get() != ev) it = find(ev);
    if (it == m_active.end()) {
        CORVO_LOG(DEBUG, COMP, "removing event '%s'", ev->get_name().c_str());
        return false;
    }
    take(it);
    return true;
}

bool EventPoller::exists(const Event* ev) const {
    return std::any_of(m_active.begin(), m_active.end(),
                       [ev](const auto& entry) { return entry.second.event().get() == ev; });
}

void EventPoller::clear() {
    while (!m_active.empty())
        take(m_active.begin());
}

bool EventPoller::wait(int timeout_ms) {
    if (!m_active.empty()) {
        epoll_event ready{};
        const int count = cv_epoll_wait(m_epoll_fd, &ready, 1, timeout_ms);
        if (count >= 0 || errno == EINTR) return count > 0;
    }
    rest(timeout_ms);
    return false;
}

bool EventPoller::look_ahead(int timeout_ms) {
    if (!m_expired.empty()) return true;
    const int err = m_active.empty() ? ENOENT : collect(timeout_ms);
    m_looked_ahead = !m_expired.empty();
    // The epoll instance is broken, for example because an engine closed it. The loop must not spin on it.
    if (err != 0 && err != EINTR) rest(timeout_ms);
    return m_looked_ahead;
}

void EventPoller::forget_look_ahead() {
    if (std::exchange(m_looked_ahead, false)) m_expired.clear();
}

void EventPoller::rest(int timeout_ms) {
    const timespec pause = to_timespec(static_cast<unsigned int>(std::max(timeout_ms, 0)));
    cv_nanosleep(&pause, nullptr);
}

bool EventPoller::handle_pending_events(int timeout_ms) {
    if (m_active.empty()) return false;
    if (m_expired.empty()) OSPoll(timeout_ms);
    if (m_expired.empty()) return false;
    m_looked_ahead = false;

    const auto [fd, reason] = m_expired.front();
    m_expired.erase(m_expired.begin());
    const auto it = m_active.find(fd);
    if (it == m_active.end()) {
        CORVO_LOG(ERROR, COMP, "trigger on an unknown event [%d]", fd);
        return !m_expired.empty();
    }
    const EventState state = it->second.state();
    std::shared_ptr<Event> ev = take(it);
    handle_pending_event(ev, reason, state);
    return true;
}

void EventPoller::remove_expired(int fd) {
    std::erase_if(m_expired, [fd](const ExpiredEvent& entry) { return entry.first == fd; });
}

void EventPoller::OSPoll(int timeout_ms) {
    const int err = collect(timeout_ms);
    if (err == 0) return;
    const auto level = err == EINTR ? Logger::DEBUG : Logger::ERROR;
    if (Logger::pred(level, COMP))
        Logger::xlog(__FILE__, __LINE__, level, COMP, "failed to get events from poller [%s]",
                     std::strerror(err));
}

int EventPoller::collect(int timeout_ms) {
    epoll_event ready[MAX_BATCH];
    const int count = cv_epoll_wait(m_epoll_fd, ready, MAX_BATCH, timeout_ms);
    if (count < 0) return errno;
    for (int i = 0; i < count; ++i) {
        const int data = ready[i].data.fd;
        expire({std::abs(data), data > 0 ? EVENT_EXPIRE_READY : EVENT_EXPIRE_TIMEOUT});
    }
    return 0;
}

uint32_t EventPoller::conv_state_to_flags(EventState state) {
    switch (state) {
        case EVENT_STATE_READ:
            return BASE_FLAGS | EPOLLIN;
        case EVENT_STATE_WRITE:
            return BASE_FLAGS | EPOLLOUT;
        case EVENT_STATE_READ_WRITE:
            return BASE_FLAGS | EPOLLIN | EPOLLOUT;
        default:
            return BASE_FLAGS;
    }
}

EventPoller::active_map::iterator EventPoller::find(const Event* ev) {
    return std::find_if(m_active.begin(), m_active.end(),
                        [ev](const auto& entry) { return entry.second.event().get() == ev; });
}

void EventPoller::expire(const ExpiredEvent& entry) {
    const auto [first, last] =
        std::equal_range(m_expired.begin(), m_expired.end(), entry, ExpiredEventCompare());
    m_expired.insert(entry.second == EVENT_EXPIRE_READY ? first : last, entry);
}

std::shared_ptr<Event> EventPoller::take(active_map::iterator it) {
    const int fd = it->first;
    // The tables are updated before the record is destroyed, as that may destroy an event that calls
    // back here.
    const ActiveEvent record = std::move(it->second);
    CORVO_LOG(DEBUG, COMP, "removing event '%s'", record.event()->get_name().c_str());
    m_active.erase(it);
    if (record.timer_fd() >= 0) cv_epoll_ctl(m_epoll_fd, EPOLL_CTL_DEL, record.timer_fd(), nullptr);
    cv_epoll_ctl(m_epoll_fd, EPOLL_CTL_DEL, fd, nullptr);
    remove_expired(fd);
    return record.event();
}

void EventPoller::handle_pending_event(std::shared_ptr<Event>& ev, EventExpireReason reason,
                                       EventState state) {
    CORVO_LOG(DEBUG, COMP, "handling event '%s'", ev->get_name().c_str());
    const EventRC rc = ev->do_work(reason);
    switch (rc.action) {
        case EventRC::ACTION_REARM:
            add(ev, rc.state != EVENT_STATE_NONE ? rc.state : state, rc.timeout_ms);
            return;
        case EventRC::ACTION_DONE:
            // Iterates over a copy, as a callback may add another one.
            for (const auto& cb : std::vector(ev->completion_cbs()))
                cb(ev.get());
            return;
        default:
            CORVO_LOG(ERROR, SCHED_COMP, "unknown event action requested: %d", static_cast<int>(rc.action));
            assert(!"unknown event action");
    }
}

}  // namespace corvo
