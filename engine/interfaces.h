#pragma once
// The interfaces that traffic is captured from. Frames that wait make the descriptor of the engine readable;
// `poll` hands them to the data path, a bounded number at a time.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "capture_socket.h"
#include "data_path.h"
#include "owned_fd.h"

namespace corvo::engine {

class Interfaces {
 public:
    /** Throws Error without an event descriptor. */
    Interfaces();

    /** Readable while frames or news of an interface wait. */
    int event_fd() const { return m_epoll.get(); }

    /** Throws Error if it is attached already, or can't be captured from. */
    void attach(const std::string& ifname);
    /** Throws Error if it isn't attached. */
    void detach(const std::string& ifname);
    void detach_all();

    /** Hands over some of the waiting frames. What is left keeps the event descriptor readable. */
    void poll(DataPath& path);
    /** To be called once a second; see CaptureSocket. */
    void refresh();

    const std::vector<std::unique_ptr<CaptureSocket>>& attached() const { return m_sockets; }
    /** Of all interfaces that are or were attached. */
    uint64_t drops() const;
    /** A trouble that wasn't told yet; empty if there is none. */
    std::string take_problem();

 private:
    using Sockets = std::vector<std::unique_ptr<CaptureSocket>>;

    Sockets::iterator find(const std::string& ifname);

    OwnedFd m_epoll;
    Sockets m_sockets;
    std::unique_ptr<FrameBatch> m_batch;  ///< only while something is attached
    size_t m_first = 0;                   ///< whose turn it is to come first
    uint64_t m_past_drops = 0;
};

}  // namespace corvo::engine
