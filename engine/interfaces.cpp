#include "interfaces.h"

#include "engine_error.h"

namespace corvo::engine {
namespace {

constexpr size_t MAX_INTERFACES = 64;

}  // namespace

Interfaces::Interfaces(size_t ring_bytes) : m_ring_bytes(ring_bytes) {}

void Interfaces::make_worker_lanes(unsigned count) {
    std::vector<std::unique_ptr<CaptureLane>> workers;
    std::vector<CaptureLane*> lanes;
    for (unsigned i = 0; i < count; i++) {
        workers.push_back(std::make_unique<CaptureLane>());
        lanes.push_back(workers.back().get());
    }
    if (lanes.empty()) lanes.push_back(&m_own);
    m_lanes = std::move(lanes);
    m_workers = std::move(workers);
}

void Interfaces::attach(const std::string& ifname) {
    const CaptureLane& first = *m_lanes[0];
    if (first.find(ifname)) throw Error("interface " + quoted(ifname) + " is already attached");
    if (first.sockets().size() == MAX_INTERFACES)
        throw Error(std::to_string(MAX_INTERFACES) + " interfaces are attached, the most that can be");
    FanoutGroup* group = nullptr;
    if (!m_workers.empty()) group = &(m_groups[ifname] = {});
    try {
        for (CaptureLane* lane : m_lanes)
            lane->add(std::make_unique<CaptureSocket>(ifname, m_ring_bytes / m_lanes.size(), group));
    } catch (...) {
        for (CaptureLane* lane : m_lanes)
            lane->remove(ifname);
        m_groups.erase(ifname);
        throw;
    }
}

void Interfaces::detach(const std::string& ifname) {
    if (!m_lanes[0]->find(ifname)) throw Error("interface " + quoted(ifname) + " isn't attached");
    for (CaptureLane* lane : m_lanes) {
        CaptureSocket& socket = *lane->find(ifname);
        socket.refresh();
        m_past_drops += socket.drops();
        lane->remove(ifname);
    }
    m_groups.erase(ifname);
}

void Interfaces::detach_all() {
    while (!m_lanes[0]->sockets().empty())
        detach(std::string(m_lanes[0]->sockets().back()->name()));
}

void Interfaces::refresh() {
    for (CaptureLane* lane : m_lanes)
        lane->refresh();
}

std::vector<Interfaces::Counters> Interfaces::attached() const {
    std::vector<Counters> out;
    for (const auto& first : m_lanes[0]->sockets()) {
        Counters& one = out.emplace_back();
        one = {first->name(), 0, 0, 0, first->up(), first->downs()};
        for (const CaptureLane* lane : m_lanes) {
            const CaptureSocket& socket = *lane->find(one.name);
            one.packets += socket.packets();
            one.bytes += socket.bytes();
            one.drops += socket.drops();
        }
    }
    return out;
}

uint64_t Interfaces::drops() const {
    uint64_t sum = m_past_drops;
    for (const Counters& one : attached())
        sum += one.drops;
    return sum;
}

// All sockets of an interface have the same problem, but not all are looked at by the same time.
std::string Interfaces::take_problem() {
    for (const auto& first : m_lanes[0]->sockets()) {
        std::string problem = first->take_problem();
        if (!problem.empty()) return problem;
    }
    return {};
}

}  // namespace corvo::engine
