#pragma once
// Records from when they are made until a receiver has them: on disk if there is a spool, and in memory for
// as long as the disk refuses them, or without one. Both are bounded; the oldest go first, and are counted.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "backoff.h"
#include "spool.h"

namespace corvo::engine {

class RecordQueue {
 public:
    /** For what isn't on disk. */
    static constexpr size_t MEMORY_BYTES = 4 << 20;

    /** `folder`: empty for no spool. Numbers begin with `next`, or continue the spool's. Throws Error if it
     * can't be used; see Spool. */
    RecordQueue(const std::string& folder, uint64_t max_bytes, uint64_t next);

    /** That of the next record. */
    uint64_t next_number() const { return m_next; }
    /** A record that can't be told takes its number along. */
    void skip() noexcept { m_next++, m_lost++; }
    /** `line`: with its end. Throws std::bad_alloc, in which case nothing has changed. */
    void add(std::string_view line, uint64_t now_ms);
    /** Puts what is in memory on disk, where it survives this process. Call it at least once a second. */
    void flush(uint64_t now_ms);

    /**
     * Hands out the oldest records, without the last line's end: at most `max_bytes`, but at least one. False
     * if there is none. They stay ours until `accept`; until then, `take` must not be called again.
     */
    bool take(size_t max_bytes, std::string& lines);
    void accept(const std::string& lines);
    /** Takes back what was handed out. */
    void put_back(const std::string& lines);
    /** The last flush. What has no place on disk is lost. */
    void close(uint64_t now_ms);

    /** Size of what isn't accepted yet. */
    uint64_t waiting_bytes() const {
        return (m_spool ? m_spool->waiting_bytes() : 0) + m_memory.size() + m_taken;
    }
    bool has_spool() const { return m_spool.has_value(); }
    uint64_t sent() const { return m_sent; }
    /** Records that nobody will get. */
    uint64_t lost() const { return m_lost + (m_spool ? m_spool->dropped() : 0); }
    /** What was found in the spool and isn't a record, lines. */
    uint64_t rubbish() const { return m_spool ? m_spool->rubbish() : 0; }
    /** Of the disk. */
    Backoff& trouble() { return m_trouble; }

 private:
    void write_memory(uint64_t now_ms);
    void make_room(size_t bytes);

    std::optional<Spool> m_spool;
    std::string m_memory;  ///< newer than all in the spool
    size_t m_taken = 0;    ///< bytes handed out that are in neither
    uint64_t m_next = 1;
    uint64_t m_save_at_ms = 0;
    uint64_t m_sent = 0;
    uint64_t m_lost = 0;
    Backoff m_trouble{{"spool.failed", "spool.back", "records are spooled to disk again"}};
};

}  // namespace corvo::engine
