#include "interfaces.h"

#include <sys/epoll.h>

#include <algorithm>

#include "engine_error.h"

namespace corvo::engine {
namespace {

constexpr size_t MAX_INTERFACES = 64;
/** A millisecond or two of work, so that the main loop isn't held up for longer. */
constexpr unsigned FRAMES_PER_POLL = 512;
constexpr unsigned FRAMES_PER_TURN = 64;

}  // namespace

Interfaces::Interfaces(size_t ring_bytes) : m_ring_bytes(ring_bytes), m_epoll(epoll_create1(EPOLL_CLOEXEC)) {
    if (!m_epoll) throw Error("no event descriptor" + reason(errno));
}

Interfaces::Sockets::iterator Interfaces::find(const std::string& ifname) {
    return std::find_if(m_sockets.begin(), m_sockets.end(),
                        [&](const auto& socket) { return socket->name() == ifname; });
}

void Interfaces::attach(const std::string& ifname) {
    if (find(ifname) != m_sockets.end()) throw Error("interface " + quoted(ifname) + " is already attached");
    if (m_sockets.size() == MAX_INTERFACES)
        throw Error(std::to_string(MAX_INTERFACES) + " interfaces are attached, the most that can be");
    auto socket = std::make_unique<CaptureSocket>(ifname, m_ring_bytes);
    m_sockets.reserve(m_sockets.size() + 1);
    epoll_event event{};
    event.events = EPOLLIN;
    if (epoll_ctl(m_epoll.get(), EPOLL_CTL_ADD, socket->fd(), &event) < 0)
        throw Error("can't wait for interface " + quoted(ifname) + reason(errno));
    m_sockets.push_back(std::move(socket));
}

void Interfaces::detach(const std::string& ifname) {
    auto found = find(ifname);
    if (found == m_sockets.end()) throw Error("interface " + quoted(ifname) + " isn't attached");
    (*found)->refresh();
    m_past_drops += (*found)->drops();
    m_sockets.erase(found);  // closing removes it from the epoll set
}

void Interfaces::detach_all() {
    while (!m_sockets.empty())
        detach(std::string(m_sockets.back()->name()));
}

// One batch from each in turn, so that a busy interface doesn't starve the others.
void Interfaces::poll(DataPath& path) {
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

void Interfaces::refresh() {
    for (const auto& socket : m_sockets)
        socket->refresh();
}

uint64_t Interfaces::drops() const {
    uint64_t sum = m_past_drops;
    for (const auto& socket : m_sockets)
        sum += socket->drops();
    return sum;
}

std::string Interfaces::take_problem() {
    for (const auto& socket : m_sockets) {
        std::string problem = socket->take_problem();
        if (!problem.empty()) return problem;
    }
    return {};
}

}  // namespace corvo::engine
