#pragma once
// All flows of one data path. Entries live in chunks and never move; an open-addressing index leads to them.
// Memory follows the number of flows, not the limit, and is given back by `clear`.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "flow.h"
#include "keyed_hash.h"

namespace corvo::engine {

class FlowTable {
 public:
    explicit FlowTable(uint32_t max_flows) : m_max_flows(max_flows) {}

    /**
     * The flow of that key, a new one if there is none yet: then no packets are counted in it. Null if the
     * table is full. Throws std::bad_alloc, and then nothing has changed.
     */
    Flow* find_or_add(const FlowKey& key);
    void clear();
    uint32_t size() const { return m_size; }
    uint32_t max_flows() const { return m_max_flows; }
    /** Flows that were ever added. */
    uint64_t created() const { return m_created; }
    /** Entries that were ever in use: the bound of `at`. */
    uint32_t entries() const { return m_opened; }
    /** The flow of an entry; null if it isn't in use. */
    Flow* at(uint32_t index) const {
        if (index >= m_opened) return nullptr;
        Flow& flow = entry(index);
        return flow.used ? &flow : nullptr;
    }

    /**
     * Goes on with its round through the entries, over at most `budget` of them, and calls `visit` with each
     * flow, which may remove that flow. True if that brought it to the end of a round.
     */
    template <typename Visit>
    bool go_round(uint32_t budget, Visit visit) {
        for (; budget > 0 && m_cursor < m_opened; budget--, m_cursor++) {
            if (entry(m_cursor).used) visit(entry(m_cursor));
        }
        if (m_cursor < m_opened) return false;
        m_cursor = 0;
        return true;
    }
    void remove(Flow& flow);

    /** Frees at most `budget` entries, the last ones first, without keeping the index. True at the end. */
    bool wreck(uint32_t budget);

 private:
    static constexpr uint32_t NONE = UINT32_MAX;
    static constexpr uint32_t CHUNK = 256;

    struct Slot {
        uint32_t hash = 0;
        uint32_t index = NONE;
    };

    Flow& entry(uint32_t index) const { return m_chunks[index / CHUNK][index % CHUNK]; }
    uint32_t hash_of(const FlowKey& key) const;
    Flow* find(const FlowKey& key, uint32_t hash) const;
    size_t mask() const { return m_slots.size() - 1; }
    void grow_index();
    uint32_t take_entry();
    uint32_t unlink(const Flow& flow);

    uint32_t m_max_flows;
    uint32_t m_size = 0;
    uint64_t m_created = 0;
    uint32_t m_opened = 0;  ///< entries that were ever in use
    uint32_t m_first_free = NONE;
    uint32_t m_cursor = 0;
    KeyedHash m_hash;
    std::vector<std::unique_ptr<Flow[]>> m_chunks;
    std::vector<Slot> m_slots;  ///< a power of two, at most 3/4 full
};

}  // namespace corvo::engine
