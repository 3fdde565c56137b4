#include "client/check/findings_text.h"

namespace brumectl::check {

std::string findings_text(const std::string& file, const Report& report, const Terminal& terminal) {
    std::string out;
    for (const Finding& finding : report.findings()) {
        const Place place = report.place(finding.offset);
        const auto colour = finding.severity == ERROR ? Terminal::RED : Terminal::YELLOW;
        out += harmless(file) + ":" + std::to_string(place.line) + ":" + std::to_string(place.column) + ": " +
               terminal.paint(colour, std::string(severity_word(finding.severity)) + ":") + " " +
               harmless(finding.text) + "\n";
    }
    const size_t all = report.count(ERROR) + report.count(WARNING);
    if (all > Report::MAX_KEPT)
        out += harmless(file) + ": " + std::to_string(all - Report::MAX_KEPT) + " more\n";
    return out;
}

void append_json(const std::string& file, const Report& report, Json::Value& out) {
    for (const Finding& finding : report.findings()) {
        const Place place = report.place(finding.offset);
        Json::Value& entry = out.append(Json::objectValue);
        entry["file"] = file;
        entry["line"] = Json::UInt64(place.line);
        entry["column"] = Json::UInt64(place.column);
        entry["severity"] = severity_word(finding.severity);
        entry["text"] = finding.text;
    }
}

std::string counts_text(size_t errors, size_t warnings) {
    return counted(errors, "error", "errors") + ", " + counted(warnings, "warning", "warnings");
}

}  // namespace brumectl::check
