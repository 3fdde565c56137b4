#pragma once
// Traffic by protocol or interface, one row each, with rates from two samples.

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
    uint64_t flows = 0;  ///< for protocols
    uint64_t drops = 0;  ///< for interfaces, like the next two
    uint64_t downs = 0;
    bool up = true;
    bool has_rate = false;
    double packet_rate = 0;  ///< per second
    double byte_rate = 0;
};

/** A key that sorts the protocols, and its meaning. */
struct TrafficOrder {
    char key;
    const char* name;
    bool (*comes_first)(const Traffic& a, const Traffic& b);
};
/** The first is the default: the busiest by bytes per second. */
std::span<const TrafficOrder> traffic_orders();

/** Whether both samples are from the same run of the daemon, so that the growth of counters gives rates. */
bool is_comparable(const LiveSample& now, const LiveSample& before);
/** Includes flows whose class may still change. `before` is null for the first sample. */
std::vector<Traffic> protocol_traffic(const LiveSample& now, const LiveSample* before,
                                      const TrafficOrder& order = traffic_orders().front());
/** Attached interfaces in the engine's order, then the packets pushed by requests as "pushed". */
std::vector<Traffic> interface_traffic(const LiveSample& now, const LiveSample* before);

}  // namespace brumectl
