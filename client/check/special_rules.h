#pragma once
// Rules for methods' parameters that a schema can't express.

#include <string>

#include "client/check/parameters.h"

namespace brumectl::check {

/** `params` must be an object. Wrong types are left to the schema's check. */
void check_special_rules(const std::string& method, const Json::Value& params, const Build& build,
                         Report& report);

}  // namespace brumectl::check
