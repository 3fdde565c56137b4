#pragma once
// One batch of frames on its way to the engine. The operations that fill and send batches are members of
// Engine; they live in this header's source.

#include <brumecpd/engine_api.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "server/corvo_server_loader.h"

namespace corvo {
class CCapPkt;
}

namespace corvo::server {

/** Is used again for the next batch: emptying it keeps the room of the vectors. */
class PacketBuffer {
 public:
    /** A batch goes out when it holds more than this. */
    static constexpr uint32_t BATCH_LIMIT_BYTES = 9999;

    PacketBuffer() = default;
    PacketBuffer(const PacketBuffer&) = delete;
    PacketBuffer& operator=(const PacketBuffer&) = delete;

    /** Copies a parsed frame. `described`: with what its headers tell. */
    void add(const CCapPkt& frame, uint32_t ns_id, bool described);
    bool full() const { return bytes > BATCH_LIMIT_BYTES; }
    bool empty() const { return pkts.empty(); }
    /** Frees every frame. */
    void clear();

    std::vector<api::pkt_> pkts;
    std::vector<Engine::PktInfo> infos;  ///< one entry per packet, same index
    uint32_t bytes = 0;                  ///< sum of the frame lengths

 private:
    /** What `pkts[i].data` points to; apart from it, since the engine may write into `pkts`. */
    std::vector<std::unique_ptr<unsigned char[]>> m_frames;
};

}  // namespace corvo::server
