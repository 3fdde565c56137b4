#pragma once
// What `top` shows: lines made from samples. Knows only the terminal's width and height.

#include <string>
#include <vector>

#include "client/live/list_pane.h"
#include "client/live/live_sample.h"
#include "client/live/traffic.h"
#include "client/text/terminal.h"

namespace brumectl {

struct TopFrame {
    const LiveSample* now = nullptr;     ///< null before the first sample
    const LiveSample* before = nullptr;  ///< the previous one, for rates; may be null
    std::string trouble = {};            ///< why the daemon doesn't answer; empty if it does
    std::string address = {};
    double delay_sec = 1;
    const TrafficOrder* order = &traffic_orders().front();
    const Pane* pane = &panes().front();
    const ListOrder* list_order = &list_orders().front();
    bool help = false;  ///< show the keys instead of the numbers
    size_t width = 80;
    size_t height = 0;  ///< 0: as many lines as needed, without the line of keys
};

std::vector<std::string> top_lines(const TopFrame& frame, const Terminal& terminal);

}  // namespace brumectl
