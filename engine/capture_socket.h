#pragma once
// Capture from one interface: a packet socket, and what is counted of it. Frames come as they are on the
// wire, but for VLAN tags, which the kernel takes off. Promiscuous mode is left as it is.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include <sys/socket.h>

#include "data_path.h"
#include "owned_fd.h"

namespace corvo::engine {

/** Room for the frames of one system call; one for all sockets. Memory follows the longest frames seen. */
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
    /** Throws Error if there is no such interface, it can't be had, or its frames aren't Ethernet. */
    explicit CaptureSocket(const std::string& ifname);

    int fd() const { return m_fd.get(); }
    const std::string& name() const { return m_name; }

    /** Takes what waits, as much as fits, and gives the number of frames. Never blocks. */
    unsigned receive(FrameBatch& batch);
    /**
     * To be called once a second: asks the kernel for its drops, and takes an interface that was down, or was
     * removed and has come back, into use again.
     */
    void refresh();

    uint64_t packets() const { return m_packets; }
    uint64_t bytes() const { return m_bytes; }
    /** Frames that the kernel had no room for, as of the last `refresh`. */
    uint64_t drops() const { return m_drops; }
    bool up() const { return m_up; }
    /** How often it went down. */
    uint64_t downs() const { return m_downs; }
    /** What is wrong with the interface; each trouble is told once. */
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
