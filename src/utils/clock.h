#pragma once
// The one place that reads clocks. Decisions and measurements use the monotonic clock; the wall clock is only
// for timestamps that people read. All functions are safe in signal context.

#include <cstdint>

namespace corvo {

/** Milliseconds of CLOCK_MONOTONIC. */
uint64_t monotonic_ms();
/** Whole seconds of CLOCK_MONOTONIC. */
int64_t monotonic_sec();
/** Milliseconds since the Epoch, CLOCK_REALTIME. */
uint64_t realtime_ms();
/** Whole seconds since the Epoch, CLOCK_REALTIME. */
int64_t realtime_sec();

}  // namespace corvo
