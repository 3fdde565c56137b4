#pragma once
// Any JSON value as text for people: objects as aligned lines, arrays of objects as tables, units from what
// the schema says of a member. The schema is a help, not a promise: whatever doesn't fit it is shown plainly.

#include <json/value.h>

#include <string>

#include "client/text/terminal.h"

namespace brumectl {

/** `schema` may be null. Ends in a newline. */
std::string render(const Terminal& terminal, const Json::Value& value, const Json::Value* schema);
/** One value on one line, harmless; arrays and objects in JSON. */
std::string line_of(const Json::Value& value, const Json::Value* schema = nullptr);
/** A text made harmless; empty if it is no string. */
std::string text_of(const Json::Value& value);
/** "a, b, c", or "-" where there's nothing. */
std::string list_of(const Json::Value& array);
/** "key:  value" lines, the values below each other. Takes texts that are harmless. */
std::string key_lines(const Terminal& terminal,
                      const std::vector<std::pair<std::string, std::string>>& lines);

}  // namespace brumectl
