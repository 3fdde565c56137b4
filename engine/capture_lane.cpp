#include "capture_lane.h"

#include <sys/epoll.h>
#include <sys/timerfd.h>

#include <algorithm>
#include <chrono>
#include <utility>

#include "engine_error.h"
#include "monotonic.h"

namespace corvo::engine {
namespace {

/** So that neither the main loop nor who waits for a worker's turn is held up for longer. */
constexpr uint64_t LONGEST_POLL_MS = 2;
constexpr unsigned FRAMES_PER_POLL = 2048;
constexpr unsigned FRAMES_PER_TURN = 64;
/** Wake-ups that a rest must save. */
constexpr uint64_t WORTH_RESTING = 2;
constexpr uint64_t LONGEST_REST_US = 1000;
/** Faster than frames are written to memory: no ring may fill during a rest. */
constexpr uint64_t BYTES_PER_US = 4096;

uint64_t now_us() {
    return static_cast<uint64_t>(
        duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now().time_since_epoch())
            .count());
}

int control(int epoll, int operation, int fd, uint32_t events) {
    epoll_event event{};
    event.events = events;
    return epoll_ctl(epoll, operation, fd, &event);
}

}  // namespace

CaptureLane::CaptureLane()
    : m_epoll(epoll_create1(EPOLL_CLOEXEC)),
      m_timer(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)) {
    if (!m_epoll || !m_timer || control(m_epoll.get(), EPOLL_CTL_ADD, m_timer.get(), EPOLLIN) < 0)
        throw Error("no event descriptor" + reason(errno));
}

void CaptureLane::await(const CaptureSocket& socket) const {
    if (control(m_epoll.get(), EPOLL_CTL_ADD, socket.fd(), EPOLLIN) < 0)
        throw Error("can't wait for interface " + quoted(socket.name()) + reason(errno));
}

void CaptureLane::add(std::unique_ptr<CaptureSocket> socket) {
    m_sockets.reserve(m_sockets.size() + 1);
    await(*socket);
    m_sockets.push_back(std::move(socket));
}

// Closing takes it out of the epoll set. Without sockets nobody polls any more, so the rest ends here.
void CaptureLane::remove(const std::string& ifname) {
    std::erase_if(m_sockets, [&](const auto& socket) { return socket->name() == ifname; });
    if (m_sockets.empty()) pace(false);
}

CaptureSocket* CaptureLane::find(const std::string& ifname) const {
    const auto found = std::find_if(m_sockets.begin(), m_sockets.end(),
                                    [&](const auto& socket) { return socket->name() == ifname; });
    return found == m_sockets.end() ? nullptr : found->get();
}

// One batch from each in turn, so that a busy interface doesn't starve the others.
void CaptureLane::poll(DataPath& path) {
    CapturedFrame frames[FRAMES_PER_TURN];
    const uint64_t end_ms = monotonic_ms() + LONGEST_POLL_MS;
    const uint64_t opened = blocks_opened();
    unsigned handled = 0;
    unsigned idle = 0;
    while (idle < m_sockets.size() && handled < FRAMES_PER_POLL && monotonic_ms() < end_ms) {
        m_first = (m_first + 1) % m_sockets.size();
        unsigned count = m_sockets[m_first]->receive(frames, FRAMES_PER_TURN);
        path.observe(frames, count);
        handled += count;
        idle = count == 0 ? idle + 1 : 0;
    }
    pace(is_worth_resting(blocks_opened() - opened) && idle == m_sockets.size());
}

uint64_t CaptureLane::blocks_opened() const {
    uint64_t sum = 0;
    for (const auto& socket : m_sockets)
        sum += socket->ring().blocks_opened();
    return sum;
}

bool CaptureLane::is_worth_resting(uint64_t blocks) {
    const uint64_t polled_us = std::exchange(m_polled_us, now_us());
    return blocks * rest_us() > WORTH_RESTING * (m_polled_us - polled_us);
}

uint64_t CaptureLane::rest_us() const {
    uint64_t us = LONGEST_REST_US;
    for (const auto& socket : m_sockets)
        us = std::min(us, socket->ring().bytes() / BYTES_PER_US);
    return us;
}

// Errors end a rest early: they can't be masked.
void CaptureLane::pace(bool rest) {
    if (!rest && !m_resting) return;
    if (rest != m_resting)
        for (const auto& socket : m_sockets)
            control(m_epoll.get(), EPOLL_CTL_MOD, socket->fd(), rest ? 0U : EPOLLIN);
    itimerspec end{};
    if (rest) end.it_value.tv_nsec = static_cast<long>(rest_us() * 1000);
    timerfd_settime(m_timer.get(), 0, &end, nullptr);
    m_resting = rest;
}

void CaptureLane::refresh() {
    for (const auto& socket : m_sockets)
        if (socket->refresh()) await(*socket);
}

}  // namespace corvo::engine
