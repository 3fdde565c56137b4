#pragma once
// Frames as the records that an engine is handed. Each has memory of exactly its own length.

#include <brumecpd/engine_api.h>

#include <deque>
#include <vector>

#include "tools/captures/frame_builder.h"

namespace test {

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

}  // namespace test
