#pragma once
// As much of a capture as goes to the daemon in one request, and how the daemon's answer fits to it.

#include <json/value.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "client/classify/capture_source.h"
#include "client/temp_file.h"
#include "utils/pcap/pcap_packet.h"

namespace brumectl {

/** What of a frame is needed after it went into the piece. */
struct PieceFrame {
    uint64_t usec = 0;
    uint64_t number = 0;  ///< in its file, from 1
    uint16_t len = 0;
    bool is_ip = false;  ///< the daemon doesn't show others to the engine
    std::string src = {};
    std::string dst = {};
    const Json::Value* answer = nullptr;  ///< null: no class
};

class Piece {
 public:
    /**
     * The daemon does nothing else meanwhile, and on a slow or busy machine has to be done before the
     * client's time is over. Its answer has to fit into one datagram of 8 MiB; a packet takes some 450 bytes
     * there, before packing.
     */
    static constexpr size_t MAX_FRAMES = 2000;
    static constexpr uint64_t MAX_BYTES = 64UL * 1024 * 1024;

    /** The frames are also written to `copy`, a capture that the daemon reads; null: to none. */
    explicit Piece(std::unique_ptr<TempFile> copy);

    bool full() const { return m_frames.size() >= MAX_FRAMES || m_bytes >= MAX_BYTES; }
    void add(const CaptureSource::Frame& frame, uint64_t number);
    /** The copy is whole; its path. */
    const std::string& finish_copy();
    /**
     * Finds the frame of each packet in `packets`, a list in the order of the file that lacks those without
     * a class: the next frame with the same addresses and length. Gives how many have none. The frames then
     * point into `packets`.
     */
    uint64_t align(const Json::Value& packets);
    const std::vector<PieceFrame>& frames() const { return m_frames; }

 private:
    void write(const CaptureSource::Frame& frame);

    std::vector<PieceFrame> m_frames;
    uint64_t m_bytes = 0;
    std::unique_ptr<TempFile> m_copy;
    corvo::CCapPkt m_packet;
};

}  // namespace brumectl
