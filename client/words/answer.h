#pragma once
// One request asked and shown: the way that every word for a method ends.

#include <json/value.h>

#include <string>

namespace brumectl {

class Context;

/**
 * Prints the result for people, or with --json the reply as it came, an error's too.
 * @throws what Daemon::call throws
 */
void ask_and_show(Context& context, const std::string& method, const Json::Value& params);

}  // namespace brumectl
