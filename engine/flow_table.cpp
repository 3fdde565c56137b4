#include "flow_table.h"

#include <bit>
#include <cstring>

namespace corvo::engine {
namespace {

constexpr size_t FIRST_SLOTS = 1024;

constexpr bool LOW_BYTE_FIRST = std::endian::native == std::endian::little;

struct Address {
    uint64_t first, second;
};

/**
 * Loads an address so that the bytes keep their order in memory. The words stay in registers: the processor
 * waits where a word is read that was just written in parts.
 */
Address load_address(const uint8_t* from, uint8_t version) {
    if (version == 4) {
        uint32_t word = 0;
        std::memcpy(&word, from, sizeof word);
        return {LOW_BYTE_FIRST ? word : uint64_t{word} << 32, 0};
    }
    Address out;
    std::memcpy(&out.first, from, sizeof out.first);
    std::memcpy(&out.second, from + sizeof out.first, sizeof out.second);
    return out;
}

/** Both addresses occupy the first four bytes of their word in memory. */
uint64_t pack_ipv4(uint64_t lower, uint64_t upper) {
    return LOW_BYTE_FIRST ? lower | upper << 32 : lower >> 32 | upper;
}

}  // namespace

DirectedKey key_of(const Frame& frame, uint32_t ns_id, uint16_t vlan) {
    const Address src = load_address(frame.src, frame.version);
    const Address dst = load_address(frame.dst, frame.version);
    const bool from_upper = src.first != dst.first     ? src.first > dst.first
                            : src.second != dst.second ? src.second > dst.second
                                                       : frame.src_port > frame.dst_port;
    const Address lower = from_upper ? dst : src;
    const Address upper = from_upper ? src : dst;
    uint64_t lower_port = from_upper ? frame.dst_port : frame.src_port;
    uint64_t upper_port = from_upper ? frame.src_port : frame.dst_port;
    return {
        {{lower.first, lower.second, upper.first, upper.second, lower_port << 48 | upper_port << 32 | ns_id,
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
    const uint32_t hash = plain_hash(key);
    if (Flow* recent = m_recent.find(hash, key)) return recent;
    Flow* flow = find_or_add_by_index(key);
    if (flow) m_recent.keep(hash, *flow);
    return flow;
}

Flow* FlowTable::find_or_add_by_index(const FlowKey& key) {
    const uint32_t hash = hash_of(key);
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
    m_recent.forget_all();
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
