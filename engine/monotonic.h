#pragma once
// The engine's only clock: ages are measured with it, and nDPI gets it as packet time.

#include <cstdint>

namespace corvo::engine {

/** Returns milliseconds that never go backwards. Tests substitute their own for `monotonic_ms`. */
using ClockFn = uint64_t (*)();

/** Milliseconds of CLOCK_MONOTONIC. */
uint64_t monotonic_ms();

}  // namespace corvo::engine
