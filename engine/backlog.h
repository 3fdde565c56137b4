#pragma once
// Pushed packets that wait for a worker. The calling thread adds them, and whoever has the worker's turn
// processes them.

#include <brumecpd/engine_api.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "data_path.h"

namespace corvo::engine {

class Backlog {
 public:
    /** What several of the largest packets need. */
    static constexpr size_t LEAST_BYTES = 256UL << 10;

    /** `bytes`: room for packets, each with a few bytes more; a power of two, at least LEAST_BYTES. */
    explicit Backlog(size_t bytes) : m_size(bytes) {}

    // Only for the calling thread.
    /**
     * Copies the packet, for `path`, which must exist until it has been processed. Returns false if there is
     * no room now. The first call allocates memory; it may throw std::bad_alloc.
     */
    bool add(DataPath& path, const api::pkt_& pkt);
    /** Lets others see what was added. */
    void publish() { m_published = m_end; }

    size_t size() const { return m_size; }
    /** What was published and hasn't been processed, bytes. */
    size_t waiting() const { return m_published - m_read; }

    /** Only during the worker's turn: processes packets until they made up `bytes`, or none are left. */
    void work_off(size_t bytes, uint64_t now_ms) noexcept;

 private:
    static constexpr size_t ALIGNMENT = 16;
    /** Precedes each packet. */
    struct alignas(ALIGNMENT) Head {
        DataPath* path;  ///< null: the next packet is at the buffer's beginning
        uint32_t ns_id;
        uint32_t len;
    };
    static_assert(sizeof(Head) == ALIGNMENT, "one fits wherever the last packet ended");
    static constexpr size_t CACHE_LINE = 64;

    static size_t size_of(size_t len) { return (sizeof(Head) + len + ALIGNMENT - 1) & ~(ALIGNMENT - 1); }
    unsigned char* at(size_t position) const { return m_bytes.get() + (position & (m_size - 1)); }
    /** Bytes from there to the buffer's end. */
    size_t left_at(size_t position) const { return m_size - (position & (m_size - 1)); }
    bool has_room(size_t size);

    // Positions count the bytes ever added, and wrap with their type.
    const size_t m_size;
    std::unique_ptr<unsigned char[]> m_bytes;  ///< null until the first packet
    size_t m_end = 0;
    size_t m_freed = 0;  ///< the last known `m_read`
    alignas(CACHE_LINE) std::atomic<size_t> m_published = 0;
    alignas(CACHE_LINE) std::atomic<size_t> m_read = 0;
};

}  // namespace corvo::engine
