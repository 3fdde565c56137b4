#pragma once
// The totals of a classification: by protocol, and by protocol and time.

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

namespace brumectl {

struct Volume {
    uint64_t packets = 0;
    uint64_t bytes = 0;
    uint64_t flows = 0;    ///< 0 if flows aren't reported
    uint64_t guessed = 0;  ///< how many of the flows are guesses

    void add(uint64_t len) {
        ++packets;
        bytes += len;
    }
    Volume& operator+=(const Volume& other) {
        packets += other.packets;
        bytes += other.bytes;
        flows += other.flows;
        guessed += other.guessed;
        return *this;
    }
};

/** Names come from the daemon: this many are distinguished, the rest are OTHER. */
constexpr size_t MAX_PROTOCOLS = 4096;
constexpr const char* OTHER = "(other)";
/** The engine's name, too, for flows that were never named. */
constexpr const char* UNCLASSIFIED = "unclassified";

struct Tally {
    std::map<std::string, Volume> protocols = {};
    Volume unclassified = {};                      ///< IP packets without a class
    Volume undecoded = {};                         ///< frames that can't get a class
    std::map<std::string, uint64_t> reasons = {};  ///< the number of those frames by reason

    Volume& of(const std::string& protocol);
    void add_undecoded(const std::string& reason, uint64_t packets, uint64_t bytes);
    void add(const Tally& other);
    Volume classified() const;
    Volume total() const;
};

/** Bytes by protocol over the time of one capture, in equal steps that grow with it. */
class Course {
 public:
    static constexpr size_t STEPS = 192;
    using Bytes = std::array<uint64_t, STEPS>;

    /** An empty name stands for packets without a class. Times before the first one's count as the first. */
    void add(const std::string& protocol, uint64_t usec, uint64_t len);

    const std::map<std::string, Bytes>& protocols() const { return m_protocols; }
    uint64_t first_usec() const { return m_first_usec; }
    uint64_t step_usec() const { return m_step_usec; }
    /** Number of steps up to the last packet. */
    size_t steps() const { return m_steps; }

 private:
    void widen();

    std::map<std::string, Bytes> m_protocols;
    uint64_t m_first_usec = 0;
    uint64_t m_step_usec = 1;
    size_t m_steps = 0;
};

}  // namespace brumectl
