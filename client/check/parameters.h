#pragma once
// One method's parameters against its description: missing, of a wrong kind, out of range, unknown. A null
// counts as absent, and whole numbers may be written as reals, as the daemon has it.

#include "client/check/report.h"
#include "client/method_table.h"

namespace brumectl::check {

/** Where the configuration is going to be used. */
struct Target {
    bool slave_mode = true;  ///< as built by default: a host system decides what is attached
};

/** `request` holds the member `params`, an object, or null. */
void check_parameters(const Method& method, const Json::Value& request, const Target& target, Report& report);

}  // namespace brumectl::check
