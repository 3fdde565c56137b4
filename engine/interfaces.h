#pragma once
// The interfaces that traffic is captured from. Waiting frames make the engine's event descriptor readable;
// `poll` hands them to the data path, a limited number at a time.

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
    /** `ring_bytes`: for each, see PacketRing. Throws Error if the event descriptor can't be created. */
    explicit Interfaces(size_t ring_bytes);

    /** Readable while frames or status changes of an interface are waiting. */
    int event_fd() const { return m_epoll.get(); }

    /** Throws Error if the interface is already attached or can't be captured from. */
    void attach(const std::string& ifname);
    /** Throws Error if the interface isn't attached. */
    void detach(const std::string& ifname);
    void detach_all();

    /** Hands over some of the waiting frames. If any remain, the event descriptor stays readable. */
    void poll(DataPath& path);
    /** Call once a second; see CaptureSocket. */
    void refresh();

    const std::vector<std::unique_ptr<CaptureSocket>>& attached() const { return m_sockets; }
    /** Of all interfaces that are or were attached. */
    uint64_t drops() const;
    /** A problem that hasn't been reported yet; empty if there is none. */
    std::string take_problem();

 private:
    using Sockets = std::vector<std::unique_ptr<CaptureSocket>>;

    Sockets::iterator find(const std::string& ifname);

    size_t m_ring_bytes;
    OwnedFd m_epoll;
    Sockets m_sockets;
    size_t m_first = 0;  ///< index of the interface that goes first next time
    uint64_t m_past_drops = 0;
};

}  // namespace corvo::engine
