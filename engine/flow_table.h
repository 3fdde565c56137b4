#pragma once
// All flows of one data path. Entries live in chunks and never move; an open-addressing index points to them.
// Memory use follows the number of flows, not the limit. `clear` releases it.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "flow.h"
#include "keyed_hash.h"
#include "recent_flows.h"

namespace corvo::engine {

class FlowTable {
 public:
    explicit FlowTable(uint32_t max_flows) : m_max_flows(max_flows) {}

    /**
     * Returns the flow with this key, adding it if it doesn't exist; a new flow has no packets counted. Null
     * if the table is full. Throws std::bad_alloc, in which case nothing has changed.
     */
    Flow* find_or_add(const FlowKey& key);
    void clear();
    uint32_t size() const { return m_size; }
    uint32_t max_flows() const { return m_max_flows; }
    /** Number of flows ever added. */
    uint64_t created() const { return m_created; }
    /** Number of entries ever used: the bound for `at`. */
    uint32_t entries() const { return m_opened; }
    /** The flow of an entry; null if the entry is unused. */
    Flow* at(uint32_t index) const {
        if (index >= m_opened) return nullptr;
        Flow& flow = entry(index);
        return flow.used ? &flow : nullptr;
    }

    /**
     * Continues a pass over the entries, visiting at most `budget` of them. Calls `visit` with each flow;
     * `visit` may remove that flow. True if this reached the end of the pass.
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

    /**
     * Frees at most `budget` entries from the end, without maintaining the index. True when none are left.
     */
    bool wreck(uint32_t budget);

 private:
    static constexpr uint32_t NONE = UINT32_MAX;
    static constexpr uint32_t CHUNK = 256;

    struct Slot {
        uint32_t hash = 0;
        uint32_t index = NONE;
    };

    Flow& entry(uint32_t index) const { return m_chunks[index / CHUNK][index % CHUNK]; }
    Flow* find_or_add_by_index(const FlowKey& key);
    uint32_t hash_of(const FlowKey& key) const;
    Flow* find(const FlowKey& key, uint32_t hash) const;
    size_t mask() const { return m_slots.size() - 1; }
    void grow_index();
    uint32_t take_entry();
    uint32_t unlink(const Flow& flow);

    uint32_t m_max_flows;
    uint32_t m_size = 0;
    uint64_t m_created = 0;
    uint32_t m_opened = 0;  ///< number of entries ever used
    uint32_t m_first_free = NONE;
    uint32_t m_cursor = 0;
    KeyedHash m_hash;
    RecentFlows m_recent;
    std::vector<std::unique_ptr<Flow[]>> m_chunks;
    std::vector<Slot> m_slots;  ///< a power of two, at most 3/4 full
};

}  // namespace corvo::engine
