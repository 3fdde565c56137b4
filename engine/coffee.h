#pragma once
// The data path's internal functions that can be called by name.

#include <cstdint>
#include <string>
#include <vector>

#include "shards.h"

namespace corvo::engine {

/**
 * Runs the function and returns its output. `path` is null while there is no data path, in which case there
 * are no flows either. Throws Error if the function doesn't exist or its arguments are wrong.
 */
std::string run_coffee(Shards* path, const std::string& func, const std::vector<uint32_t>& args);

}  // namespace corvo::engine
