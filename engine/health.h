#pragma once
// How the engine is: a few values, each with two thresholds of its own. A value at or above one of them is
// "warn" or "bad"; the whole is as bad as the worst.

#include <json/value.h>

#include <array>
#include <cstdint>

namespace corvo::engine {

/** Sum of what came in during the last minute, give or take ten seconds. Time is handed in. */
class LastMinute {
 public:
    /** `total` never goes back. */
    void update(uint64_t now_ms, uint64_t total);
    uint64_t sum() const { return m_total - m_starts[(m_slot + 1) % SLOTS]; }

 private:
    static constexpr size_t SLOTS = 7;
    static constexpr uint64_t SLOT_MS = 10000;

    std::array<uint64_t, SLOTS> m_starts = {};  ///< totals at the beginning of each slot, a ring
    size_t m_slot = 0;
    uint64_t m_slot_end_ms = 0;
    uint64_t m_total = 0;
};

class Health {
 public:
    enum item_e { FLOW_TABLE, MEMORY, DROPS, EVICTIONS, EXPORT_FAILURES, ITEMS };
    using Values = std::array<uint64_t, ITEMS>;

    Health();

    /** State of the whole and of each item; with `verbose` values, units and thresholds too. */
    Json::Value report(const Values& values, bool verbose) const;
    /** All thresholds, in the form that `configure` takes. */
    Json::Value configuration() const;
    /** Takes the thresholds that are given. Throws Error with what is wrong, and then takes none. */
    void configure(const Json::Value& conf);

 private:
    struct Thresholds {
        uint64_t warn;
        uint64_t bad;
    };

    std::array<Thresholds, ITEMS> m_thresholds;
};

/** Memory of this process that is in use, bytes; 0 if the system doesn't tell. */
uint64_t resident_memory();

}  // namespace corvo::engine
