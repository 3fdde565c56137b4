#pragma once
// The engine's only clock: ages are measured with it, and nDPI is handed it as packet time.

#include <cstdint>

namespace corvo::engine {

/** Gives milliseconds that never go back; tests put one of their own in the place of `monotonic_ms`. */
using ClockFn = uint64_t (*)();

/** Milliseconds of CLOCK_MONOTONIC. */
uint64_t monotonic_ms();

}  // namespace corvo::engine
