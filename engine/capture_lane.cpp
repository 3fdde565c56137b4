#include "capture_lane.h"

#include <sys/epoll.h>

#include <algorithm>

#include "engine_error.h"

namespace corvo::engine {
namespace {

/** A millisecond or two of work, so that the main loop isn't held up for longer. */
constexpr unsigned FRAMES_PER_POLL = 512;
constexpr unsigned FRAMES_PER_TURN = 64;

}  // namespace

CaptureLane::CaptureLane() : m_epoll(epoll_create1(EPOLL_CLOEXEC)) {
    if (!m_epoll) throw Error("no event descriptor" + reason(errno));
}

void CaptureLane::await(const CaptureSocket& socket) const {
    epoll_event event{};
    event.events = EPOLLIN;
    if (epoll_ctl(m_epoll.get(), EPOLL_CTL_ADD, socket.fd(), &event) < 0)
        throw Error("can't wait for interface " + quoted(socket.name()) + reason(errno));
}

void CaptureLane::add(std::unique_ptr<CaptureSocket> socket) {
    m_sockets.reserve(m_sockets.size() + 1);
    await(*socket);
    m_sockets.push_back(std::move(socket));
}

// Closing takes it out of the epoll set.
void CaptureLane::remove(const std::string& ifname) {
    std::erase_if(m_sockets, [&](const auto& socket) { return socket->name() == ifname; });
}

CaptureSocket* CaptureLane::find(const std::string& ifname) const {
    const auto found = std::find_if(m_sockets.begin(), m_sockets.end(),
                                    [&](const auto& socket) { return socket->name() == ifname; });
    return found == m_sockets.end() ? nullptr : found->get();
}

// One batch from each in turn, so that a busy interface doesn't starve the others.
void CaptureLane::poll(DataPath& path) {
    CapturedFrame frames[FRAMES_PER_TURN];
    unsigned handled = 0;
    unsigned idle = 0;
    while (idle < m_sockets.size() && handled < FRAMES_PER_POLL) {
        m_first = (m_first + 1) % m_sockets.size();
        unsigned count = m_sockets[m_first]->receive(frames, FRAMES_PER_TURN);
        path.observe(frames, count);
        handled += count;
        idle = count == 0 ? idle + 1 : 0;
    }
}

void CaptureLane::refresh() {
    for (const auto& socket : m_sockets)
        if (socket->refresh()) await(*socket);
}

}  // namespace corvo::engine
