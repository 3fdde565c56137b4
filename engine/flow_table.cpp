#include "flow_table.h"

#include <bit>
#include <cstring>

namespace corvo::engine {
namespace {

constexpr size_t FIRST_SLOTS = 1024;

/** Loads an address so that the bytes keep their order in memory. */
void load_address(const uint8_t* from, uint8_t version, uint64_t to[2]) {
    to[0] = to[1] = 0;
    if (version == 4)
        std::memcpy(to, from, 4);
    else
        std::memcpy(to, from, 16);
}

/** Both addresses occupy the first four bytes of their word in memory. */
uint64_t pack_ipv4(uint64_t lower, uint64_t upper) {
    return std::endian::native == std::endian::little ? lower | upper << 32 : lower >> 32 | upper;
}

}  // namespace

DirectedKey key_of(const Frame& frame, uint32_t ns_id, uint16_t vlan) {
    uint64_t src[2];
    uint64_t dst[2];
    load_address(frame.src, frame.version, src);
    load_address(frame.dst, frame.version, dst);
    bool from_upper = src[0] != dst[0]   ? src[0] > dst[0]
                      : src[1] != dst[1] ? src[1] > dst[1]
                                         : frame.src_port > frame.dst_port;
    const uint64_t* lower = from_upper ? dst : src;
    const uint64_t* upper = from_upper ? src : dst;
    uint64_t lower_port = from_upper ? frame.dst_port : frame.src_port;
    uint64_t upper_port = from_upper ? frame.src_port : frame.dst_port;
    return {{{lower[0], lower[1], upper[0], upper[1], lower_port << 48 | upper_port << 32 | ns_id,
              uint64_t{vlan} << 16 | static_cast<uint64_t>(frame.version) << 8 | frame.protocol}},
            from_upper};
}

// Two IPv4 addresses fit in one word. The last word tells the IP versions apart.
uint32_t FlowTable::hash_of(const FlowKey& key) const {
    if (key.version() != 4) return static_cast<uint32_t>(m_hash(key.words));
    const uint64_t words[] = {pack_ipv4(key.words[0], key.words[2]), key.words[4], key.words[5]};
    return static_cast<uint32_t>(m_hash(words));
}

Flow* FlowTable::find(const FlowKey& key, uint32_t hash) const {
    if (m_slots.empty()) return nullptr;
    for (size_t at = hash & mask(); m_slots[at].index != NONE; at = (at + 1) & mask()) {
        if (m_slots[at].hash != hash) continue;
        Flow& flow = entry(m_slots[at].index);
        if (flow.key == key) return &flow;
    }
    return nullptr;
}

Flow* FlowTable::find_or_add(const FlowKey& key) {
    uint32_t hash = hash_of(key);
    if (Flow* known = find(key, hash)) return known;
    if (m_size >= m_max_flows) return nullptr;
    if ((m_size + size_t{1}) * 4 > m_slots.size() * 3) grow_index();
    uint32_t index = take_entry();
    size_t at = hash & mask();
    while (m_slots[at].index != NONE)
        at = (at + 1) & mask();
    m_slots[at] = {hash, index};
    Flow& flow = entry(index);
    flow.key = key;
    flow.hash = hash;
    flow.used = true;
    m_size++;
    m_created++;
    return &flow;
}

void FlowTable::grow_index() {
    std::vector<Slot> bigger(m_slots.empty() ? FIRST_SLOTS : m_slots.size() * 2);
    size_t bigger_mask = bigger.size() - 1;
    for (const Slot& slot : m_slots) {
        if (slot.index == NONE) continue;
        size_t at = slot.hash & bigger_mask;
        while (bigger[at].index != NONE)
            at = (at + 1) & bigger_mask;
        bigger[at] = slot;
    }
    m_slots.swap(bigger);
}

uint32_t FlowTable::take_entry() {
    if (m_first_free != NONE) {
        uint32_t index = m_first_free;
        m_first_free = entry(index).next_free;
        return index;
    }
    if (m_opened == m_chunks.size() * CHUNK) m_chunks.push_back(std::make_unique<Flow[]>(CHUNK));
    return m_opened++;
}

void FlowTable::remove(Flow& flow) {
    uint32_t index = unlink(flow);
    flow = Flow();
    flow.next_free = m_first_free;
    m_first_free = index;
    m_size--;
}

// Closes the gap that the entry leaves in its run of slots, so that lookups never meet a tombstone.
uint32_t FlowTable::unlink(const Flow& flow) {
    size_t gap = flow.hash & mask();
    while (&entry(m_slots[gap].index) != &flow)
        gap = (gap + 1) & mask();
    const uint32_t index = m_slots[gap].index;
    for (size_t at = (gap + 1) & mask(); m_slots[at].index != NONE; at = (at + 1) & mask()) {
        size_t home = m_slots[at].hash & mask();
        if (((at - home) & mask()) < ((at - gap) & mask())) continue;
        m_slots[gap] = m_slots[at];
        gap = at;
    }
    m_slots[gap] = Slot();
    return index;
}

void FlowTable::clear() {
    m_slots = std::vector<Slot>();
    m_chunks = std::vector<std::unique_ptr<Flow[]>>();
    m_size = m_opened = m_cursor = 0;
    m_first_free = NONE;
}

bool FlowTable::wreck(uint32_t budget) {
    for (uint32_t chunks = budget / CHUNK + 1; chunks > 0 && !m_chunks.empty(); chunks--)
        m_chunks.pop_back();
    if (!m_chunks.empty()) return false;
    clear();
    return true;
}

}  // namespace corvo::engine
