#pragma once
// Frames of as many flows as a benchmark asks for: each a DNS query from a different client.

#include <algorithm>
#include <cstdint>

#include "tools/captures/sample_flows.h"

namespace bench {

/** Turns one flow's frame into another's in place. The checksums become wrong, which no one here checks. */
class FlowFrame {
 public:
    FlowFrame() : m_bytes(test::sample_flow("dns").frames[0]) {}

    void set_flow(uint32_t flow) {
        constexpr size_t IP_SOURCE = 26;
        m_bytes[IP_SOURCE] = 10;
        m_bytes[IP_SOURCE + 1] = static_cast<uint8_t>(flow >> 16);
        m_bytes[IP_SOURCE + 2] = static_cast<uint8_t>(flow >> 8);
        m_bytes[IP_SOURCE + 3] = static_cast<uint8_t>(flow);
    }
    /** Makes it one that no protocol's dissector accepts: all of them look at it, as often as they may. */
    void make_unknown() {
        constexpr size_t PORTS = 34;
        constexpr size_t PAYLOAD = 42;
        std::fill(m_bytes.begin() + PORTS, m_bytes.begin() + PORTS + 4, uint8_t{0xb7});
        std::fill(m_bytes.begin() + PAYLOAD, m_bytes.end(), uint8_t{0xa9});
    }
    uint8_t* data() { return m_bytes.data(); }
    size_t size() const { return m_bytes.size(); }

 private:
    test::Bytes m_bytes;
};

}  // namespace bench
