#pragma once
// What /proc tells of the daemon's machine and process and `status` doesn't. Only where both are ours.

#include <json/value.h>

#include <cstdint>
#include <optional>

#include "client/wire/address.h"

namespace brumectl {

struct Machine {
    /** Bytes that no program could get, as `free` has it. What caches hold isn't among them. */
    std::optional<uint64_t> used_memory = {};
    /** Seconds of processor time that the daemon has taken since its start. */
    std::optional<double> cpu_sec = {};

    /** `status` is the daemon's answer, come from `daemon`. */
    static Machine look(const Address& daemon, const Json::Value& status);
};

}  // namespace brumectl
