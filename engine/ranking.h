#pragma once
// Items in descending order, sorted only as far as they are read and in short steps: the first page of a
// million doesn't wait for all to be sorted.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "monotonic.h"

namespace corvo::engine {

/** A limit on the time a call may take. */
class Budget {
 public:
    Budget(ClockFn clock, uint64_t budget_ms) : m_clock(clock), m_end_ms(clock() + budget_ms) {}
    bool spent() const { return m_clock() > m_end_ms; }

 private:
    ClockFn m_clock;
    uint64_t m_end_ms;
};

struct Ranked {
    uint64_t value = 0;
    uint32_t index =
        0;  ///< identifies what this stands for; unique: of two equal values, the lower index comes first
    uint32_t hash = 0;  ///< for the caller's use

    bool before(const Ranked& other) const {
        return value != other.value ? value > other.value : index < other.index;
    }
};

class Ranking {
 public:
    void add(const Ranked& item) { m_items.push_back(item); }
    size_t size() const { return m_items.size(); }
    /** Works towards the item at a position below `size`; null if the budget ran out first. */
    const Ranked* at(size_t position, const Budget& budget);

 private:
    void split(size_t end);

    std::vector<Ranked> m_items;  ///< no more are added once `at` was called
    size_t m_ordered = 0;         ///< this many are in their final place
    std::vector<size_t>
        m_ends;  ///< split points: everything before one sorts ahead of everything after it; nearest last
    uint64_t m_random = 0x9e3779b97f4a7c15u;
};

}  // namespace corvo::engine
