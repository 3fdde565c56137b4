#pragma once
// Capture from one interface: a packet socket, its ring and its counters. Frames arrive as they are on the
// wire, minus the VLAN tags, which the kernel strips. Promiscuous mode is left as it is.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "owned_fd.h"
#include "packet_ring.h"

namespace corvo::engine {

/** Sockets of one interface, among which the kernel deals its frames: both directions of a flow to the same.
 */
struct FanoutGroup {
    unsigned index = 0;  ///< that of the interface; 0 while there is no group
    uint16_t id = 0;
};

class CaptureSocket {
 public:
    /**
     * `ring_bytes`: see PacketRing. `group`, which must outlive this, is null for all of the interface's
     * frames. Throws Error if the interface doesn't exist, can't be opened, or doesn't carry Ethernet frames.
     */
    CaptureSocket(const std::string& ifname, size_t ring_bytes, FanoutGroup* group);

    /** Changes with `refresh`. */
    int fd() const { return m_source.fd.get(); }
    const std::string& name() const { return m_name; }

    /** Returns the number of frames set, at most `max`; they are valid until the next call. Never blocks. */
    unsigned receive(CapturedFrame* frames, unsigned max);
    /**
     * Call once a second. Asks the kernel for its drop count, and starts using an interface again that was
     * down, or that was removed and has come back. True if there is a new descriptor.
     */
    bool refresh();

    uint64_t packets() const { return m_packets; }
    uint64_t bytes() const { return m_bytes; }
    /** Frames the kernel had no room for, as of the last `refresh`. */
    uint64_t drops() const { return m_drops; }
    /** Begins anew with a new descriptor. */
    const PacketRing& ring() const { return *m_source.ring; }
    bool up() const { return m_up; }
    /** How many times the interface went down. */
    uint64_t downs() const { return m_downs; }
    /** What is wrong with the interface. Each problem is reported once. */
    std::string take_problem() { return std::exchange(m_problem, {}); }

 private:
    struct Source {
        OwnedFd fd;
        std::unique_ptr<PacketRing> ring;
    };

    Source open(unsigned index) const;
    void join_group(int fd, unsigned index, bool loopback) const;
    void look_for_error();
    short flags() const;

    std::string m_name;
    size_t m_ring_bytes;
    FanoutGroup* m_group;
    unsigned m_index;
    Source m_source;
    bool m_up = true;
    bool m_was_idle = true;  ///< no frame last time: only then is an error looked for, which wakes us up too
    uint64_t m_packets = 0;
    uint64_t m_bytes = 0;
    uint64_t m_drops = 0;
    uint64_t m_downs = 0;
    std::string m_problem;
};

}  // namespace corvo::engine
