#pragma once
// What tests and fuzzers of the engine share.

#include <brumecpd/engine_api.h>
#include <brumecpd/engine_notify.h>

#include <deque>
#include <string>
#include <vector>

#include "tools/captures/frame_builder.h"

namespace test {

/** Frames in the form in which an engine is handed them, each in memory of exactly its own length. */
class Pushed {
 public:
    explicit Pushed(const std::vector<Bytes>& frames, uint32_t ns_id = 0) {
        for (const Bytes& frame : frames)
            add(frame, ns_id);
    }
    void add(Bytes frame, uint32_t ns_id = 0) {
        m_frames.push_back(std::move(frame));
        pkts.emplace_back();
        pkts.back().data = m_frames.back().data();
        pkts.back().len = static_cast<uint16_t>(m_frames.back().size());
        pkts.back().ns_id = ns_id;
    }

    std::vector<corvo::api::pkt_> pkts;

 private:
    std::deque<Bytes> m_frames;
};

/** A clock that the test moves on. */
inline uint64_t g_now_ms = 1;
inline uint64_t fake_clock() {
    return g_now_ms;
}

/** What the engine has notified since the last call, each as "feature name severity: text". */
std::vector<std::string> take_notices();

/** Two peers that nDPI remembers. */
inline std::vector<Bytes> torrent_frames() {
    const Path peers{"8.0.0.5", "9.0.0.6", 6881, 16881};
    return {udp_frame(peers, from_text("d1:ad2:id20:abcdefghij0123456789e1:q4:ping1:t2:aa1:y1:qe")),
            udp_frame(peers.reversed(), from_text("d1:rd2:id20:mnopqrstuvwxyz123456e1:t2:aa1:y1:re"))};
}

}  // namespace test
