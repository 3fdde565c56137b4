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
/**
 * With --json: prints the reply; with --result the result alone, and nothing of an error.
 * @throws ErrorReply if that's what it is
 */
void ask_and_print_reply(Context& context, const std::string& method, const Json::Value& params);
/** The same with another `id` than the one that it was asked with: that of whoever wrote the request. */
void ask_and_print_reply(Context& context, const std::string& method, const Json::Value& params,
                         const Json::Value& id);

}  // namespace brumectl
