#include "client/flows/sighting.h"

#include "client/text/json_access.h"
#include "utils/clock.h"

namespace brumectl::flows {

namespace {

/** The engine's times and our clocks are in whole milliseconds, and aren't read at the same moment. */
constexpr double JITTER_SEC = 0.005;

double seconds_of(const Json::Value& flow, const char* member) {
    const Json::Value& value = member_of(flow, member);
    return value.isNumeric() ? value.asDouble() : 0;
}

}  // namespace

Moment Moment::now() {
    const double now_sec = static_cast<double>(corvo::realtime_ms()) / 1000;
    return {now_sec, now_sec - static_cast<double>(corvo::monotonic_ms()) / 1000};
}

Sighting Sighting::of(const Json::Value& flow, const Moment& moment) {
    return {count_of(member_of(flow, "packets")), seconds_of(flow, "first_seen") - moment.offset_sec,
            seconds_of(flow, "last_seen") - moment.offset_sec};
}

bool Sighting::continues(const Sighting& before) const {
    return packets >= before.packets &&
           last_sec - first_sec >= before.last_sec - before.first_sec - JITTER_SEC &&
           first_sec <= before.last_sec + JITTER_SEC;
}

}  // namespace brumectl::flows
