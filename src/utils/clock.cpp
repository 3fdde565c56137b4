#include "utils/clock.h"

#include <ctime>

namespace corvo {
namespace {

timespec read_clock(clockid_t id) {
    timespec t{};
    clock_gettime(id, &t);
    return t;
}

uint64_t to_ms(const timespec& t) {
    return static_cast<uint64_t>(t.tv_sec) * 1000 + static_cast<uint64_t>(t.tv_nsec) / 1000000;
}

}  // namespace

uint64_t monotonic_ms() {
    return to_ms(read_clock(CLOCK_MONOTONIC));
}
int64_t monotonic_sec() {
    return read_clock(CLOCK_MONOTONIC).tv_sec;
}
uint64_t realtime_ms() {
    return to_ms(read_clock(CLOCK_REALTIME));
}
int64_t realtime_sec() {
    return read_clock(CLOCK_REALTIME).tv_sec;
}

}  // namespace corvo
