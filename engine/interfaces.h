#pragma once
// The interfaces that traffic is captured from. Each has a socket in every lane: one lane for the engine's
// calling thread, or one for each worker, who share the interface's frames by flow. With workers, whoever
// calls any of these must keep them from their lanes meanwhile.

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "capture_lane.h"

namespace corvo::engine {

class Interfaces {
 public:
    /** `ring_bytes`: for each interface, see PacketRing. Throws Error if there is no event descriptor. */
    explicit Interfaces(size_t ring_bytes);
    Interfaces(const Interfaces&) = delete;
    Interfaces& operator=(const Interfaces&) = delete;

    /** That of the calling thread's lane: always open, and quiet while workers capture. */
    int event_fd() const { return m_own.event_fd(); }
    CaptureLane& own_lane() { return m_own; }
    /**
     * From now on interfaces are attached to this many lanes of workers, or to the own one if there are none.
     * No interface may be attached. Throws Error.
     */
    void make_worker_lanes(unsigned count);
    CaptureLane& worker_lane(unsigned worker) { return *m_workers[worker]; }

    /** Throws Error if the interface is already attached or can't be captured from. */
    void attach(const std::string& ifname);
    /** Throws Error if the interface isn't attached. */
    void detach(const std::string& ifname);
    void detach_all();
    /** Call once a second; see CaptureSocket. */
    void refresh();

    /** One interface: the sums of its sockets. */
    struct Counters {
        std::string name;
        uint64_t packets = 0;
        uint64_t bytes = 0;
        uint64_t drops = 0;
        bool up = true;
        uint64_t downs = 0;
    };
    /** In the order of their attachment. */
    std::vector<Counters> attached() const;
    /** Of all interfaces that are or were attached. */
    uint64_t drops() const;
    /** A problem that hasn't been reported yet; empty if there is none. */
    std::string take_problem();

 private:
    size_t m_ring_bytes;
    std::map<std::string, FanoutGroup> m_groups;  ///< by interface; outlive the sockets
    CaptureLane m_own;
    std::vector<std::unique_ptr<CaptureLane>> m_workers;
    std::vector<CaptureLane*> m_lanes = {&m_own};  ///< those in use
    uint64_t m_past_drops = 0;
};

}  // namespace corvo::engine
