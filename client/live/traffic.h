#pragma once
// What went by, a row for each protocol or interface, and how fast: from two samples.

#include <cstdint>
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

/** Busiest first: by bytes a second, then by bytes. `before` is null for the first sample. */
std::vector<Traffic> protocol_traffic(const LiveSample& now, const LiveSample* before);
/** Attached ones in the engine's order, then what was pushed by requests as "pushed". */
std::vector<Traffic> interface_traffic(const LiveSample& now, const LiveSample* before);

}  // namespace brumectl
