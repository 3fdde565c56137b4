#pragma once
// Any JSON value as text for people: objects as aligned lines, arrays of objects as tables, units from the
// schema's description of a member. The schema is only a hint: whatever doesn't match it is shown plainly.

#include <json/value.h>

#include <string>

#include "client/text/terminal.h"

namespace brumectl {

/** `schema` may be null. Ends with a newline. */
std::string render(const Terminal& terminal, const Json::Value& value, const Json::Value* schema);
/** One value on one line, made harmless; arrays and objects as JSON. */
std::string line_of(const Json::Value& value, const Json::Value* schema = nullptr);
/** A text made harmless; empty if it isn't a string. */
std::string text_of(const Json::Value& value);
/** "a, b, c", or "-" if there are none. */
std::string list_of(const Json::Value& array);
/** "key:  value" lines with the values aligned. The texts must be harmless. */
std::string key_lines(const Terminal& terminal,
                      const std::vector<std::pair<std::string, std::string>>& lines);

}  // namespace brumectl
