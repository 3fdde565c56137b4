#pragma once
// Formats findings like a compiler's messages, or as JSON.

#include <json/value.h>

#include <string>

#include "client/check/report.h"
#include "client/text/terminal.h"

namespace brumectl::check {

/** "FILE:LINE:COL: error: text", one per line. */
std::string findings_text(const std::string& file, const Report& report, const Terminal& terminal);
/** Appends objects with `file`, `line`, `column`, `severity`, `text`. */
void append_json(const std::string& file, const Report& report, Json::Value& out);
/** "2 errors, 1 warning". */
std::string counts_text(size_t errors, size_t warnings);

}  // namespace brumectl::check
