#pragma once
// A report of a crash or a stall as text, whether from a file or from the daemon's memory.

#include <string>

#include "client/evidence/evidence_report.h"
#include "client/text/terminal.h"

namespace brumectl {

/** A line with a harmless value; empty if the text is empty. */
std::string field_text(const Terminal& terminal, const char* label, const std::string& text);
/** Likewise for a path, quoted for the shell. */
std::string path_text(const Terminal& terminal, const char* label, const std::string& path);
/** What the report says about the process, one line per known fact. */
std::string report_text(const Terminal& terminal, const EvidenceReport& report);
/** One line per frame, innermost first. */
std::string stack_text(const Terminal& terminal, const EvidenceReport& report);
/** A string without surrounding blanks; other values as JSON; empty for null. */
std::string plain(const Json::Value& value);

}  // namespace brumectl
