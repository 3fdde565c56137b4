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

class CaptureSocket {
 public:
    /**
     * `ring_bytes`: see PacketRing. Throws Error if the interface doesn't exist, can't be opened, or doesn't
     * carry Ethernet frames.
     */
    CaptureSocket(const std::string& ifname, size_t ring_bytes);

    int fd() const { return m_fd.get(); }
    const std::string& name() const { return m_name; }

    /** Returns the number of frames set, at most `max`; they are valid until the next call. Never blocks. */
    unsigned receive(CapturedFrame* frames, unsigned max);
    /**
     * Call once a second. Asks the kernel for its drop count, and starts using an interface again that was
     * down, or that was removed and has come back.
     */
    void refresh();

    uint64_t packets() const { return m_packets; }
    uint64_t bytes() const { return m_bytes; }
    /** Frames the kernel had no room for, as of the last `refresh`. */
    uint64_t drops() const { return m_drops; }
    bool up() const { return m_up; }
    /** How many times the interface went down. */
    uint64_t downs() const { return m_downs; }
    /** What is wrong with the interface. Each problem is reported once. */
    std::string take_problem() { return std::exchange(m_problem, {}); }

 private:
    void bind_to(unsigned index);
    void look_for_error();
    short flags() const;

    std::string m_name;
    OwnedFd m_fd;
    std::unique_ptr<PacketRing> m_ring;
    unsigned m_index = 0;
    bool m_up = true;
    uint64_t m_packets = 0;
    uint64_t m_bytes = 0;
    uint64_t m_drops = 0;
    uint64_t m_downs = 0;
    std::string m_problem;
};

}  // namespace corvo::engine
