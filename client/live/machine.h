#pragma once
// What /proc says about the daemon's machine and process that `status` doesn't. Only if both are on
// our machine.

#include <json/value.h>

#include <cstdint>
#include <optional>

#include "client/wire/address.h"

namespace brumectl {

struct Machine {
    /** Bytes unavailable to programs, as computed by `free`. Caches aren't included. */
    std::optional<uint64_t> used_memory = {};
    /** Processor time that the daemon has used since its start, seconds. */
    std::optional<double> cpu_sec = {};

    /** `status` is the result received from `daemon`. */
    static Machine look(const Address& daemon, const Json::Value& status);
};

}  // namespace brumectl
