#pragma once
// What a classification has found, in sums: by protocol, and by protocol and time.

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

namespace brumectl {

struct Volume {
    uint64_t packets = 0;
    uint64_t bytes = 0;

    void add(uint64_t len) {
        ++packets;
        bytes += len;
    }
    Volume& operator+=(const Volume& other) {
        packets += other.packets;
        bytes += other.bytes;
        return *this;
    }
};

/** Names come from the daemon: so many are told apart, the rest are OTHER. */
constexpr size_t MAX_PROTOCOLS = 4096;
constexpr const char* OTHER = "(other)";

struct Tally {
    std::map<std::string, Volume> protocols = {};
    Volume unclassified = {};  ///< IP packets that got no class
    Volume not_ip = {};        ///< frames that the engine isn't shown

    Volume& of(const std::string& protocol);
    void add(const Tally& other);
    Volume classified() const;
    Volume total() const;
};

/** Bytes by protocol over the time of one capture, in equal steps. */
class Course {
 public:
    static constexpr size_t STEPS = 96;
    using Bytes = std::array<uint64_t, STEPS>;

    /** From the first packet's time to the last's. */
    void set_range(uint64_t first_usec, uint64_t last_usec);
    /** An empty name is for packets without a class. A time outside the range counts at its edge. */
    void add(const std::string& protocol, uint64_t usec, uint64_t len);

    const std::map<std::string, Bytes>& protocols() const { return m_protocols; }
    uint64_t first_usec() const { return m_first_usec; }
    /** Of all steps together; at least one microsecond a step. */
    uint64_t span_usec() const { return m_span_usec; }

 private:
    std::map<std::string, Bytes> m_protocols;
    uint64_t m_first_usec = 0;
    uint64_t m_span_usec = STEPS;
};

}  // namespace brumectl
