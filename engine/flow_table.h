#pragma once
// All flows of one data path. Entries live in chunks and never move; an open-addressing index leads to them.
// Memory follows the number of flows, not the limit, and is given back by `clear`.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "flow.h"

namespace corvo::engine {

class FlowTable {
 public:
    explicit FlowTable(uint32_t max_flows);

    /**
     * The flow of that key, a new one if there is none yet: then `packets` is 0. Null if the table is full.
     * Throws std::bad_alloc, and then nothing has changed.
     */
    Flow* find_or_add(const FlowKey& key);
    void clear();
    uint32_t size() const { return m_size; }
    uint32_t max_flows() const { return m_max_flows; }
    /** Flows that were ever added. */
    uint64_t created() const { return m_created; }
    /** Those of them that `expire` has forgotten. */
    uint64_t aged() const { return m_aged; }

    /**
     * Goes on with its round through the entries, over at most `budget` of them, and forgets the flows that
     * have been idle for too long, each after a call of `leaving`. True if that brought it to the end of a
     * round.
     */
    bool expire(
        uint64_t now_ms, uint32_t budget,
        const std::function<void(const Flow&)>& leaving = [](const Flow&) {});

    /** Calls `visit` with every flow, in no particular order, until it gives false. */
    template <typename Visit>
    void for_each(Visit visit) const {
        for (uint32_t i = 0; i < m_opened; i++) {
            const Flow& flow = entry(i);
            if (flow.used && !visit(flow)) return;
        }
    }

 private:
    static constexpr uint32_t NONE = UINT32_MAX;
    static constexpr uint32_t CHUNK = 256;

    struct Slot {
        uint32_t hash = 0;
        uint32_t index = NONE;
    };

    Flow& entry(uint32_t index) const { return m_chunks[index / CHUNK][index % CHUNK]; }
    uint32_t hash_of(const FlowKey& key) const;
    size_t mask() const { return m_slots.size() - 1; }
    void grow_index();
    uint32_t take_entry();
    void remove(uint32_t index);
    void unlink(uint32_t index);

    uint32_t m_max_flows;
    uint32_t m_size = 0;
    uint64_t m_created = 0;
    uint64_t m_aged = 0;
    uint32_t m_opened = 0;  ///< entries that were ever in use
    uint32_t m_first_free = NONE;
    uint32_t m_cursor = 0;
    uint64_t m_seed[2];
    std::vector<std::unique_ptr<Flow[]>> m_chunks;
    std::vector<Slot> m_slots;  ///< a power of two, at most 3/4 full
};

}  // namespace corvo::engine
