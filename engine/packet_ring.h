#pragma once
// Frames that the kernel writes straight into memory shared with us (TPACKET_V3): nothing is copied, and one
// wake-up serves all frames of a few milliseconds.

#include <cstddef>
#include <cstdint>

struct tpacket3_hdr;
struct tpacket_block_desc;

namespace corvo::engine {

/** A frame received from an interface. */
struct CapturedFrame {
    const uint8_t* data = nullptr;
    uint16_t len = 0;       ///< bytes that were captured
    uint32_t wire_len = 0;  ///< bytes that it had on the wire
};

class PacketRing {
 public:
    static constexpr size_t MIN_BYTES = 256UL << 10;
    static constexpr size_t MAX_BYTES = 1UL << 30;

    /**
     * Gives the unbound packet socket `fd`, which must outlive it, a ring of `bytes`, or of less where memory
     * is short. Throws std::system_error.
     */
    PacketRing(int fd, size_t bytes);
    PacketRing(const PacketRing&) = delete;
    PacketRing& operator=(const PacketRing&) = delete;
    ~PacketRing();

    /** What it got. */
    size_t bytes() const { return m_block_size * m_blocks; }

    /** Blocks that the kernel has handed over so far; each may have woken us up. */
    uint64_t blocks_opened() const { return m_opened; }

    /** Returns the number of frames set, at most `max`. They are valid until the next call. Never blocks. */
    unsigned take(CapturedFrame* frames, unsigned max);

 private:
    bool open_block();
    void release_block();
    tpacket_block_desc* block() const;

    uint8_t* m_memory = nullptr;
    size_t m_block_size;
    unsigned m_blocks;
    unsigned m_current = 0;  ///< the block being read, or the next to be
    uint64_t m_opened = 0;
    bool m_is_open = false;                ///< the current block is ours
    unsigned m_left = 0;                   ///< frames in the current block that haven't been taken
    const tpacket3_hdr* m_next = nullptr;  ///< the first of them
};

}  // namespace corvo::engine
