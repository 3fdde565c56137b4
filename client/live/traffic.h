#pragma once
// What went by, a row for each protocol or interface, and how fast: from two samples.

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "client/live/live_sample.h"

namespace brumectl {

struct Traffic {
    std::string name;
    uint64_t packets = 0;
    uint64_t bytes = 0;
    uint64_t flows = 0;  ///< of protocols
    uint64_t drops = 0;  ///< of interfaces, as the next two
    uint64_t downs = 0;
    bool up = true;
    bool has_rate = false;
    double packet_rate = 0;  ///< a second
    double byte_rate = 0;
};

/** A key that orders the protocols, and what it stands for. */
struct TrafficOrder {
    char key;
    const char* name;
    bool (*comes_first)(const Traffic& a, const Traffic& b);
};
/** The first is the usual one: the busiest, by bytes a second. */
std::span<const TrafficOrder> traffic_orders();

/** Both are of the same daemon's life, so that what has grown tells how fast. */
bool is_comparable(const LiveSample& now, const LiveSample& before);
/** Flows whose class may still change are among them. `before` is null for the first sample. */
std::vector<Traffic> protocol_traffic(const LiveSample& now, const LiveSample* before,
                                      const TrafficOrder& order = traffic_orders().front());
/** Attached ones in the engine's order, then what was pushed by requests as "pushed". */
std::vector<Traffic> interface_traffic(const LiveSample& now, const LiveSample* before);

}  // namespace brumectl
