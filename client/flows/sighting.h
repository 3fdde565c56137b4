#pragma once
// How a flow was seen at one look, to tell at the next whether what has its ends is still the same flow.

#include <json/value.h>

#include <cstdint>

namespace brumectl::flows {

/** When a look is taken, by this machine's clocks. */
struct Moment {
    double now_sec = 0;     ///< since 1970
    double offset_sec = 0;  ///< from the monotonic clock to that; changes if the clock is set

    static Moment now();
    double monotonic_sec() const { return now_sec - offset_sec; }
};

struct Sighting {
    uint64_t packets = 0;
    double first_sec = 0;  ///< by the monotonic clock, like the next
    double last_sec = 0;

    static Sighting of(const Json::Value& flow, const Moment& moment);
    /** False if it must be another flow that has begun since `before`. */
    bool continues(const Sighting& before) const;
};

}  // namespace brumectl::flows
