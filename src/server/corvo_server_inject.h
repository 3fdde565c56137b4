#pragma once
// A batch of frames on its way to the engine. The operations that fill and send batches are members of
// Engine, implemented in this header's source.

#include <brumecpd/engine_api.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "server/corvo_server_loader.h"

namespace corvo {
class CCapPkt;
}

namespace corvo::server {

/** Reused for the next batch: clearing it keeps the capacity of the vectors. */
class PacketBuffer {
 public:
    /** A batch is sent once it holds more than this. */
    static constexpr uint32_t BATCH_LIMIT_BYTES = 9999;

    PacketBuffer() = default;
    PacketBuffer(const PacketBuffer&) = delete;
    PacketBuffer& operator=(const PacketBuffer&) = delete;

    /** Copies a parsed frame; if `described`, also what its headers say. */
    void add(const CCapPkt& frame, uint32_t ns_id, bool described);
    bool full() const { return bytes > BATCH_LIMIT_BYTES; }
    bool empty() const { return pkts.empty(); }
    /** Frees all frames. */
    void clear();

    std::vector<api::pkt_> pkts;
    std::vector<Engine::PktInfo> infos;  ///< one entry per packet, at the same index
    uint32_t bytes = 0;                  ///< sum of the frame lengths

 private:
    /** Owns what `pkts[i].data` points to; kept separately because the engine may write into `pkts`. */
    std::vector<std::unique_ptr<unsigned char[]>> m_frames;
};

}  // namespace corvo::server
