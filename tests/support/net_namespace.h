#pragma once
// A network namespace of the test's own: nobody else's traffic is in it, and no interface but loopback.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "utils/unique_fd.h"

namespace test {

class NetNamespace {
 public:
    /** Moves this thread, and what it starts, into a new one. `entered` is false if that isn't permitted. */
    NetNamespace();
    /** Moves back. */
    ~NetNamespace();
    NetNamespace(const NetNamespace&) = delete;
    NetNamespace& operator=(const NetNamespace&) = delete;

    bool entered() const { return m_entered; }
    static void set_loopback(bool up);
    /** Sends datagrams to a port of 127.0.0.1 where somebody listens but doesn't read. */
    static void send_datagrams(uint16_t port, const std::vector<unsigned char>& payload, int count = 1);

 private:
    corvo::UniqueFd m_home;
    bool m_entered;
};

}  // namespace test
