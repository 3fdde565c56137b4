#pragma once
// A `load` that every build accepts.

#include <json/value.h>

#include <string>

#include "infra/corvo_version.h"

namespace test {

/** Parameters of `load`, with the engine of `dir` unless it is empty. */
inline Json::Value load_params(const std::string& dir = {}) {
    Json::Value params(Json::objectValue);
    if (!dir.empty()) params["path"] = dir;
    if (!corvo::Version::g_bare_metal) return params;
    // On bare metal nobody finds the shared memory for the engine.
    params["shm"]["type"] = "devmem";
    params["shm"]["size"] = 4096;
    params["shm"]["addr"] = "1f000000";
    return params;
}

}  // namespace test
