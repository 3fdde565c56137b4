#pragma once
// What one thread captures: a socket of each interface. Waiting frames make the lane's event descriptor
// readable; `poll` hands them to a data path, a limited number at a time. While they come so fast that they
// would wake us up more often, they are left to gather for up to a millisecond.

#include <memory>
#include <string>
#include <vector>

#include "capture_socket.h"
#include "data_path.h"
#include "owned_fd.h"

namespace corvo::engine {

class CaptureLane {
 public:
    /** Throws Error if the event descriptor can't be created. */
    CaptureLane();

    /** Readable while frames or status changes of an interface are waiting. */
    int event_fd() const { return m_epoll.get(); }

    /** Throws Error if the event descriptor can't take it, or std::bad_alloc; it isn't added then. */
    void add(std::unique_ptr<CaptureSocket> socket);
    /** Does nothing if there is none. */
    void remove(const std::string& ifname);
    /** Null if there is none. */
    CaptureSocket* find(const std::string& ifname) const;

    /** Hands over some of the waiting frames. If any remain, the event descriptor stays readable. */
    void poll(DataPath& path);
    /** Call once a second; see CaptureSocket. */
    void refresh();

    const std::vector<std::unique_ptr<CaptureSocket>>& sockets() const { return m_sockets; }

 private:
    void await(const CaptureSocket& socket) const;
    uint64_t blocks_opened() const;
    uint64_t rest_us() const;
    bool is_worth_resting(uint64_t blocks);
    void pace(bool rest);

    OwnedFd m_epoll;
    OwnedFd m_timer;  ///< ends the rest
    std::vector<std::unique_ptr<CaptureSocket>> m_sockets;
    bool m_resting = false;
    uint64_t m_polled_us = 0;  ///< when the last poll ended
    size_t m_first = 0;        ///< index of the socket that goes first next time
};

}  // namespace corvo::engine
