#pragma once
// A report of a crash or a stall in words, wherever it comes from: a file, or the daemon's memory.

#include <string>

#include "client/evidence/evidence_report.h"
#include "client/text/terminal.h"

namespace brumectl {

/** A line, its value harmless; nothing for an empty text. */
std::string field_text(const Terminal& terminal, const char* label, const std::string& text);
/** The same for a path, as a shell takes it. */
std::string path_text(const Terminal& terminal, const char* label, const std::string& path);
/** What the report says of the process, a line for each thing that is there. */
std::string report_text(const Terminal& terminal, const EvidenceReport& report);
/** A line for each frame, innermost first. */
std::string stack_text(const Terminal& terminal, const EvidenceReport& report);
/** A string without the blanks around it; other values as JSON; empty for null. */
std::string plain(const Json::Value& value);

}  // namespace brumectl
