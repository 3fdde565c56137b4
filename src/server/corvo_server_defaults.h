#pragma once
// Defaults for `load` and for the automatic start.

#include <cstdint>

namespace corvo::server {

/** Directory of the engine library, relative to the working directory. */
inline constexpr char default_engine_path[] = "../lib";
/** Control-plane address passed to the engine. */
inline constexpr char default_cpaddr[] = "corvo-cp";

/** Flow table size for the automatic start. */
inline constexpr uint32_t default_max_flows = 16384;

}  // namespace corvo::server
