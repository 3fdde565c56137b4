#pragma once
// One request asked and shown: the way that every word for a method ends.

#include <json/value.h>

#include <string>

namespace brumectl {

class Context;

/**
 * Prints the result for people, or with --json the reply's text as it came (to a terminal made
 * harmless), an error's too.
 * @throws what Daemon::call throws
 */
void ask_and_show(Context& context, const std::string& method, const Json::Value& params);
/**
 * With --json: prints the reply's text; with --result the result alone, and nothing of an error.
 * @throws ErrorReply if that's what it is
 */
void ask_and_print_text(Context& context, const std::string& method, const Json::Value& params);

}  // namespace brumectl
