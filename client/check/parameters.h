#pragma once
// Checks one method's parameters against its description: missing, of the wrong type, out of range, unknown.
// As in the daemon, null counts as absent, and whole numbers may be written as reals.

#include "client/check/report.h"
#include "client/text/method_table.h"
#include "client/wire/build.h"

namespace brumectl::check {

/**
 * Why a build refuses what is described, a method or a value, whatever else is right about it: "is refused by
 * a daemon in slave mode". Empty if it doesn't.
 */
std::string refusal_of(const Json::Value& description, const Json::Value& value, const Build& build);
/** `request` holds the member `params`, an object or null. */
void check_parameters(const Method& method, const Json::Value& request, const Build& build, Report& report);

}  // namespace brumectl::check
