#include "record_queue.h"

#include <algorithm>
#include <utility>

namespace corvo::engine {
namespace {

/** Written at once from this size on, as making many records may take a while. */
constexpr size_t WORTH_WRITING = 1 << 18;
constexpr uint64_t SAVE_MS = 1000;

uint64_t lines_in(std::string_view text) {
    return static_cast<uint64_t>(std::count(text.begin(), text.end(), '\n'));
}

}  // namespace

RecordQueue::RecordQueue(const std::string& folder, uint64_t max_bytes, uint64_t next) : m_next(next) {
    if (folder.empty()) return;
    m_spool.emplace(folder, max_bytes, next);
    m_next = m_spool->next_number();
}

void RecordQueue::add(std::string_view line, uint64_t now_ms) {
    if (m_memory.size() >= WORTH_WRITING) flush(now_ms);
    if (m_memory.size() + line.size() > MEMORY_BYTES) make_room(line.size());
    m_memory += line;
    m_next++;
}

// An eighth at once: each time, the rest moves.
void RecordQueue::make_room(size_t bytes) {
    const size_t least = std::min(std::max(bytes, MEMORY_BYTES / 8), m_memory.size());
    const size_t end = std::min(m_memory.find('\n', least - 1), m_memory.size() - 1) + 1;
    m_lost += lines_in(std::string_view(m_memory).substr(0, end));
    m_memory.erase(0, end);
}

void RecordQueue::flush(uint64_t now_ms) {
    if (!m_spool || m_trouble.wait_ms(now_ms) > 0) return;
    if (!m_memory.empty()) write_memory(now_ms);
    if (now_ms < m_save_at_ms) return;
    m_save_at_ms = now_ms + SAVE_MS;
    if (!m_spool->save()) m_trouble.failed(m_spool->error(), now_ms);
}

void RecordQueue::write_memory(uint64_t now_ms) {
    if (!m_spool->append(m_memory, m_next)) {
        m_trouble.failed(m_spool->error(), now_ms);
        return;
    }
    m_trouble.succeeded();
    m_memory.clear();
    if (m_memory.capacity() > 2 * WORTH_WRITING) m_memory.shrink_to_fit();
}

bool RecordQueue::take(size_t max_bytes, std::string& lines) {
    if (m_spool && m_spool->read(max_bytes, lines)) return true;
    if (m_memory.empty()) return false;
    size_t end = m_memory.rfind('\n', max_bytes - 1);
    if (end == std::string::npos) end = m_memory.find('\n');
    lines.assign(m_memory, 0, end);
    m_memory.erase(0, end + 1);
    m_taken = lines.size() + 1;
    return true;
}

void RecordQueue::accept(const std::string& lines) {
    m_sent += lines_in(lines) + 1;
    if (std::exchange(m_taken, 0) == 0) m_spool->accept();
}

void RecordQueue::put_back(const std::string& lines) {
    if (std::exchange(m_taken, 0) > 0)
        m_memory.insert(0, lines + "\n");
    else
        m_spool->rewind();
}

void RecordQueue::close(uint64_t now_ms) {
    m_save_at_ms = 0;
    flush(now_ms);
    m_lost += lines_in(m_memory);
    m_memory.clear();
}

}  // namespace corvo::engine
