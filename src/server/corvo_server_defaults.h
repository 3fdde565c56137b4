#pragma once
// What `load` and the automatic start take where nothing else is said.

#include <cstdint>

namespace corvo::server {

/** Directory of the engine library, from the working directory. */
inline constexpr char default_engine_path[] = "../lib";
/** Control-plane address that the engine is told. */
inline constexpr char default_cpaddr[] = "corvo-cp";

/** Flow table of the automatic start. */
inline constexpr uint32_t default_max_flows = 16384;

}  // namespace corvo::server
