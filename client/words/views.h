#pragma once
// Results as people want to read them: some methods have a view of their own, all others `render`'s.

#include <json/value.h>

#include <string>

#include "client/text/terminal.h"

namespace brumectl {

/** Text for people of one method's result, whatever its shape is. Ends in a newline. */
std::string view(const Terminal& terminal, const std::string& method, const Json::Value& result);
/** A line of the daemon's log, harmless, coloured by its level. Without a newline. */
std::string log_line(const Terminal& terminal, const std::string& line);

}  // namespace brumectl
