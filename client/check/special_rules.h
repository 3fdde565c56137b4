#pragma once
// What methods ask of their parameters that a schema can't say.

#include <string>

#include "client/check/parameters.h"

namespace brumectl::check {

/** `params` is an object. What has a wrong type is left to the schema's check. */
void check_special_rules(const std::string& method, const Json::Value& params, const Build& build,
                         Report& report);

}  // namespace brumectl::check
