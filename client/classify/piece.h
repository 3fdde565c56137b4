#pragma once
// As much of a capture as goes to the daemon in one request.

#include <json/value.h>

#include <cstdint>
#include <string>
#include <vector>

#include "client/classify/copies.h"
#include "client/classify/link_layer.h"
#include "utils/pcap/pcap_packet.h"

namespace brumectl {

/** What of a frame is needed to find the answer for it. */
struct PieceFrame {
    uint64_t usec = 0;
    uint64_t number = 0;  ///< in its capture, from 1
    uint16_t len = 0;
    uint32_t reason = 0;  ///< why it was left out, see link_layer; 0: it wasn't
    bool is_ip = false;   ///< the daemon shows it to the engine
    std::string src = {};
    std::string dst = {};
    const Json::Value* answer = nullptr;  ///< null: no class
};

/** Writes the frames of a piece, as a capture that the daemon reads. One after the other. */
class PieceWriter {
 public:
    explicit PieceWriter(Copies& copies);

    /** An empty piece. */
    void begin();
    /** @throws Failure */
    void add(const EthernetFrame& frame, uint64_t usec);
    /** The bytes of the frame that was added last, until the next change. */
    const unsigned char* last() const { return m_buffer.data() + m_last; }
    uint64_t frames() const { return m_frames; }
    uint64_t bytes() const { return m_flushed + m_used; }
    /** It lies there for the daemon. @throws Failure */
    void finish();

 private:
    void put(const void* bytes, size_t size);
    void flush();

    Copies& m_copies;
    std::vector<unsigned char> m_buffer;
    size_t m_used = 0;
    size_t m_last = 0;
    uint64_t m_flushed = 0;
    uint64_t m_frames = 0;
};

/** What went into a piece, frame by frame, and how the daemon's answer fits to it. */
class Piece {
 public:
    void clear() { m_frames.clear(); }
    bool empty() const { return m_frames.empty(); }
    size_t size() const { return m_frames.size(); }
    /** `bytes`: of the whole Ethernet frame. */
    PieceFrame& add(const unsigned char* bytes, uint32_t size);
    /** A frame that was left out. */
    PieceFrame& add_left_out(uint32_t reason, uint32_t size);
    /**
     * Finds the frame of each packet in `packets`, a list in the order of the file that lacks those without
     * a class: the next frame with the same addresses and length. Gives how many have none. The frames then
     * point into `packets`.
     */
    uint64_t align(const Json::Value& packets);
    const std::vector<PieceFrame>& frames() const { return m_frames; }

 private:
    std::vector<PieceFrame> m_frames;
    corvo::CCapPkt m_packet;
};

}  // namespace brumectl
