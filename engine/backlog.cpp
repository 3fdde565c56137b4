#include "backlog.h"

#include <algorithm>
#include <cstring>

namespace corvo::engine {

bool Backlog::has_room(size_t size) {
    if (m_end + size - m_freed > m_size) m_freed = m_read;
    return m_end + size - m_freed <= m_size;
}

bool Backlog::add(DataPath& path, const api::pkt_& pkt) {
    if (!m_bytes) m_bytes = std::make_unique_for_overwrite<unsigned char[]>(m_size);
    const size_t size = size_of(pkt.len);
    const size_t skipped = left_at(m_end) < size ? left_at(m_end) : 0;
    if (!has_room(skipped + size)) return false;
    if (skipped > 0) {
        const Head skip{};
        std::memcpy(at(m_end), &skip, sizeof skip);
        m_end += skipped;
    }
    const Head head{&path, pkt.ns_id, pkt.len};
    std::memcpy(at(m_end), &head, sizeof head);
    std::copy_n(pkt.data, pkt.len, at(m_end) + sizeof head);
    m_end += size;
    return true;
}

void Backlog::work_off(size_t bytes, uint64_t now_ms) noexcept {
    const size_t begin = m_read;
    const size_t wanted = std::min<size_t>(bytes, m_published - begin);
    size_t position = begin;
    while (position - begin < wanted) {
        Head head;
        std::memcpy(&head, at(position), sizeof head);
        if (head.path)
            head.path->take(at(position) + sizeof head, static_cast<uint16_t>(head.len), head.ns_id, now_ms);
        position += head.path ? size_of(head.len) : left_at(position);
    }
    m_read = position;
}

}  // namespace corvo::engine
