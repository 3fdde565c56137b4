#pragma once
// The part of a capture that goes to the daemon in one request.

#include <json/value.h>

#include <cstdint>
#include <string>
#include <vector>

#include "client/classify/copies.h"
#include "client/classify/link_layer.h"
#include "utils/pcap/pcap_packet.h"

namespace brumectl {

/** What is needed to match a frame with its result. */
struct PieceFrame {
    uint64_t usec = 0;
    uint64_t number = 0;  ///< in its capture, counted from 1
    uint16_t len = 0;
    uint32_t reason = 0;  ///< why it was left out, see link_layer; 0 if it wasn't
    bool is_ip = false;   ///< the daemon passes it to the engine
    std::string src = {};
    std::string dst = {};
    const Json::Value* answer = nullptr;  ///< null: no class
};

/** Writes the frames of a piece as a capture that the daemon can read, one piece after another. */
class PieceWriter {
 public:
    explicit PieceWriter(Copies& copies);

    /** Starts an empty piece. */
    void begin();
    /** Throws Failure. */
    void add(const EthernetFrame& frame, uint64_t usec);
    /** The bytes of the last added frame, valid until the next change. */
    const unsigned char* last() const { return m_buffer.data() + m_last; }
    uint64_t frames() const { return m_frames; }
    uint64_t bytes() const { return m_flushed + m_used; }
    /** Makes the piece available to the daemon. Throws Failure. */
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

/** Records the frames of a piece and matches the daemon's results with them. */
class Piece {
 public:
    void clear() { m_frames.clear(); }
    bool empty() const { return m_frames.empty(); }
    size_t size() const { return m_frames.size(); }
    /** `bytes` covers the whole Ethernet frame. */
    PieceFrame& add(const unsigned char* bytes, uint32_t size);
    /** Records a frame that was left out. */
    PieceFrame& add_left_out(uint32_t reason, uint32_t size);
    /**
     * Finds the frame for each packet in `packets`, a list in file order without the packets that have no
     * class: the next frame with the same addresses and length. Returns how many packets match no frame. The
     * frames then point into `packets`.
     */
    uint64_t align(const Json::Value& packets);
    const std::vector<PieceFrame>& frames() const { return m_frames; }

 private:
    std::vector<PieceFrame> m_frames;
    corvo::CCapPkt m_packet;
};

}  // namespace brumectl
