#pragma once
// The engine's health: a few values, each with two thresholds of its own. A value at or above a threshold is
// "warn" or "bad"; the overall state is that of the worst value.

#include <json/value.h>

#include <array>
#include <cstdint>

namespace corvo::engine {

/**
 * How much a counter grew during the last minute, give or take ten seconds. The caller passes the time in.
 */
class LastMinute {
 public:
    /** `total` must never decrease. */
    void update(uint64_t now_ms, uint64_t total);
    uint64_t sum() const { return m_total - m_starts[(m_slot + 1) % SLOTS]; }

 private:
    static constexpr size_t SLOTS = 7;
    static constexpr uint64_t SLOT_MS = 10000;

    std::array<uint64_t, SLOTS> m_starts = {};  ///< ring of the totals at the start of each slot
    size_t m_slot = 0;
    uint64_t m_slot_end_ms = 0;
    uint64_t m_total = 0;
};

class Health {
 public:
    enum item_e { FLOW_TABLE, MEMORY, DROPS, EVICTIONS, EXPORT_FAILURES, ITEMS };
    using Values = std::array<uint64_t, ITEMS>;

    Health();

    /** Overall state and state of each item; if `verbose`, also values, units and thresholds. */
    Json::Value report(const Values& values, bool verbose) const;
    /** All thresholds, in the form that `configure` accepts. */
    Json::Value configuration() const;
    /** Sets the given thresholds. Throws Error if any of them is wrong, in which case none is set. */
    void configure(const Json::Value& conf);

 private:
    struct Thresholds {
        uint64_t warn;
        uint64_t bad;
    };

    std::array<Thresholds, ITEMS> m_thresholds;
};

/** Resident memory of this process, bytes; 0 if the system doesn't report it. */
uint64_t resident_memory();

}  // namespace corvo::engine
