#pragma once
// The flows seen last, found by a hash that costs a fraction of the keyed one. It can be predicted, which
// gains nobody anything: flows that share a slot only push each other out.

#include <array>
#include <cstddef>
#include <cstdint>

#include "flow.h"

namespace corvo::engine {

class RecentFlows {
 public:
    /** Null if it isn't among them. `hash` is that of the key. */
    Flow* find(uint32_t hash, const FlowKey& key) const {
        const Slot& slot = m_slots[index(hash)];
        return slot.hash == hash && slot.flow && slot.flow->key == key ? slot.flow : nullptr;
    }
    /** From then on, the flow's memory must stay, though its key may change, which hides it. */
    void keep(uint32_t hash, Flow& flow) { m_slots[index(hash)] = {hash, &flow}; }
    void forget_all() { m_slots = {}; }

 private:
    static constexpr unsigned BITS = 9;
    struct Slot {
        uint32_t hash = 0;
        Flow* flow = nullptr;
    };

    static size_t index(uint32_t hash) { return hash >> (32 - BITS); }

    std::array<Slot, 1U << BITS> m_slots;
};

}  // namespace corvo::engine
