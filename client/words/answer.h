#pragma once
// Sends one request and shows its result: how every method's word ends.

#include <json/value.h>

#include <string>

namespace brumectl {

class Context;

/**
 * Prints the result for people, or with --json the reply as received, even if it is an error.
 * Throws what Daemon::call throws.
 */
void ask_and_show(Context& context, const std::string& method, const Json::Value& params);

}  // namespace brumectl
