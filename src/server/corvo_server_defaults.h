#pragma once
// What `load` and the automatic start take where nothing else is said.

namespace corvo::server {

/** Directory of the engine library, from the working directory. */
inline constexpr char default_engine_path[] = "../lib";
/** Control-plane address that the engine is told. */
inline constexpr char default_cpaddr[] = "corvo-cp";

}  // namespace corvo::server
