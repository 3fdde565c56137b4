#pragma once
// Capture from one interface: a packet socket and its counters. Frames arrive as they are on the wire, minus
// the VLAN tags, which the kernel strips. Promiscuous mode is left as it is.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include <sys/socket.h>

#include "data_path.h"
#include "owned_fd.h"

namespace corvo::engine {

/**
 * Room for the frames of one system call, shared by all sockets. Memory use follows the longest frames seen.
 */
class FrameBatch {
 public:
    static constexpr unsigned SIZE = 32;

    FrameBatch();
    const CapturedFrame* frames() const { return m_frames; }

 private:
    friend class CaptureSocket;
    static constexpr size_t SLOT = UINT16_MAX;

    std::unique_ptr<uint8_t[]> m_memory;
    iovec m_slots[SIZE];
    mmsghdr m_messages[SIZE];
    CapturedFrame m_frames[SIZE];
};

class CaptureSocket {
 public:
    /** Throws Error if the interface doesn't exist, can't be opened, or doesn't carry Ethernet frames. */
    explicit CaptureSocket(const std::string& ifname);

    int fd() const { return m_fd.get(); }
    const std::string& name() const { return m_name; }

    /** Receives as many waiting frames as fit and returns their number. Never blocks. */
    unsigned receive(FrameBatch& batch);
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
    void went_down(int error);
    short flags() const;

    std::string m_name;
    OwnedFd m_fd;
    unsigned m_index = 0;
    bool m_up = true;
    uint64_t m_packets = 0;
    uint64_t m_bytes = 0;
    uint64_t m_drops = 0;
    uint64_t m_downs = 0;
    std::string m_problem;
};

}  // namespace corvo::engine
