#pragma once
// Results as people want to read them: some methods have a special view, all others use `render`.

#include <json/value.h>

#include <string>

#include "client/text/terminal.h"

namespace brumectl {

/** One method's result as text for people, whatever its shape. Ends with a newline. */
std::string view(const Terminal& terminal, const std::string& method, const Json::Value& result);
/** A line of the daemon's log, made harmless, coloured by its level. Without a newline. */
std::string log_line(const Terminal& terminal, const std::string& line);

}  // namespace brumectl
