#pragma once
// What `top` shows: lines made of samples. Knows nothing of terminals but their width and height.

#include <string>
#include <vector>

#include "client/live/live_sample.h"
#include "client/live/traffic.h"
#include "client/text/terminal.h"

namespace brumectl {

struct TopFrame {
    const LiveSample* now = nullptr;     ///< null before the first answer
    const LiveSample* before = nullptr;  ///< the one before, for rates; may be null
    std::string trouble = {};            ///< why the daemon doesn't answer; empty: it does
    std::string address = {};
    double delay_sec = 1;
    const TrafficOrder* order = &traffic_orders().front();
    bool help = false;  ///< the keys instead of the numbers
    size_t width = 80;
    size_t height = 0;  ///< 0: as many lines as it takes, without the line of keys
};

std::vector<std::string> top_lines(const TopFrame& frame, const Terminal& terminal);

}  // namespace brumectl
