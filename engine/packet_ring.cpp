#include "packet_ring.h"

#include <linux/if_packet.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <system_error>

namespace corvo::engine {
namespace {

/**
 * A block goes to us when it is full or RETIRE_MS old, even with a single frame in it. So while the daemon is
 * busy with something else, many small blocks hold out longer than few large ones. The price is that of a
 * frame longer than this, which only segmentation offload makes, just the first part is captured.
 */
constexpr size_t BLOCK_BYTES = 32UL << 10;
/** The longest that a frame waits for others: the price of fewer wake-ups. */
constexpr unsigned RETIRE_MS = 10;
/** Means nothing in this version of the ring, but is checked. */
constexpr unsigned FRAME_BYTES = 2048;
constexpr unsigned LEAST_BLOCKS = 4;

/**
 * Frames come from memory that another processor has written. So the headers of one further on are asked for
 * early; where it is, is a guess from the length of this one.
 */
void fetch_ahead(const uint8_t* frame, uint32_t length) {
    constexpr size_t FRAMES = 4, LINE = 64, LINES = 3;
    for (size_t i = 0; i < LINES; i++)
        __builtin_prefetch(frame + FRAMES * length + i * LINE);
}

[[noreturn]] void fail(int error) {
    throw std::system_error(error, std::generic_category());
}

/** Null if there is no memory for so many blocks; the socket has no ring then. */
void* map_ring(int fd, size_t block_size, unsigned blocks) {
    tpacket_req3 wanted{};
    wanted.tp_block_size = static_cast<unsigned>(block_size);
    wanted.tp_block_nr = blocks;
    wanted.tp_frame_size = FRAME_BYTES;
    wanted.tp_frame_nr = static_cast<unsigned>(block_size / FRAME_BYTES) * blocks;
    wanted.tp_retire_blk_tov = RETIRE_MS;
    void* memory = MAP_FAILED;
    if (setsockopt(fd, SOL_PACKET, PACKET_RX_RING, &wanted, sizeof wanted) == 0)
        memory = mmap(nullptr, block_size * blocks, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (memory != MAP_FAILED) return memory;
    if (errno != ENOMEM) fail(errno);
    const tpacket_req3 none{};
    setsockopt(fd, SOL_PACKET, PACKET_RX_RING, &none, sizeof none);
    return nullptr;
}

}  // namespace

PacketRing::PacketRing(int fd, size_t bytes)
    : m_block_size(std::max(BLOCK_BYTES, static_cast<size_t>(sysconf(_SC_PAGESIZE)))),
      m_blocks(static_cast<unsigned>(std::clamp(bytes, MIN_BYTES, MAX_BYTES) / m_block_size)) {
    const int version = TPACKET_V3;
    if (setsockopt(fd, SOL_PACKET, PACKET_VERSION, &version, sizeof version) < 0) fail(errno);
    while (!(m_memory = static_cast<uint8_t*>(map_ring(fd, m_block_size, m_blocks)))) {
        m_blocks /= 2;
        if (m_blocks < LEAST_BLOCKS) fail(ENOMEM);
    }
}

PacketRing::~PacketRing() {
    munmap(m_memory, bytes());
}

tpacket_block_desc* PacketRing::block() const {
    return reinterpret_cast<tpacket_block_desc*>(m_memory + m_current * m_block_size);
}

bool PacketRing::open_block() {
    tpacket_hdr_v1& head = block()->hdr.bh1;
    // What the kernel wrote before it gave the block away must not be read before the flag.
    if (!(std::atomic_ref(head.block_status).load(std::memory_order_acquire) & TP_STATUS_USER)) return false;
    m_is_open = true;
    m_opened++;
    m_left = head.num_pkts;
    m_next =
        reinterpret_cast<const tpacket3_hdr*>(reinterpret_cast<uint8_t*>(block()) + head.offset_to_first_pkt);
    return true;
}

void PacketRing::release_block() {
    std::atomic_ref(block()->hdr.bh1.block_status).store(TP_STATUS_KERNEL, std::memory_order_release);
    m_current = (m_current + 1) % m_blocks;
    m_is_open = false;
}

unsigned PacketRing::take(CapturedFrame* frames, unsigned max) {
    if (m_is_open && m_left == 0) release_block();
    if (!m_is_open && !open_block()) return 0;
    const unsigned count = std::min(m_left, max);
    for (unsigned i = 0; i < count; i++) {
        const auto* at = reinterpret_cast<const uint8_t*>(m_next);
        fetch_ahead(at, m_next->tp_next_offset);
        const uint32_t captured = std::min<uint32_t>(m_next->tp_snaplen, UINT16_MAX);
        frames[i] = {at + m_next->tp_mac, static_cast<uint16_t>(captured), m_next->tp_len};
        m_next = reinterpret_cast<const tpacket3_hdr*>(at + m_next->tp_next_offset);
    }
    m_left -= count;
    return count;
}

}  // namespace corvo::engine
