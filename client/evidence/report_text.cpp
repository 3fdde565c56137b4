#include "client/evidence/report_text.h"

#include "client/text/json_access.h"
#include "infra/json/corvo_json.h"

namespace brumectl {

namespace {

std::string joined(const std::string& first, const std::string& second) {
    return first + (first.empty() || second.empty() ? "" : ", ") + second;
}

}  // namespace

std::string field_text(const Terminal& terminal, const char* label, const std::string& text) {
    if (text.empty()) return {};
    return terminal.paint(Terminal::DIM, padded(label, 10)) + harmless(text) + "\n";
}

std::string path_text(const Terminal& terminal, const char* label, const std::string& path) {
    return path.empty() ? std::string() : field_text(terminal, label, shell_word(path));
}

std::string report_text(const Terminal& terminal, const EvidenceReport& report) {
    const Json::Value& json = report.json;
    const Json::Value& platform = member_of(json, "platform");
    const Json::Value& engine = member_of(json, "engine");
    const std::string machine =
        joined(plain(member_of(platform, "machine")), plain(member_of(platform, "release")));
    const std::string state = joined(plain(member_of(engine, "state")), plain(member_of(engine, "mode")));
    const bool has_uptime = member_of(json, "uptime").isUInt64();
    return field_text(terminal, "signal", report.signal) +
           field_text(terminal, "version", plain(report.version)) +
           field_text(terminal, "uptime",
                      has_uptime ? duration_text(count_of(member_of(json, "uptime"))) : "") +
           field_text(terminal, "process", plain(member_of(json, {"process", "pid"}))) +
           field_text(terminal, "machine", machine) +
           field_text(terminal, "engine", joined(state, plain(member_of(engine, "version")))) +
           path_text(terminal, "", plain(member_of(engine, "path"))) +
           path_text(terminal, "log", plain(member_of(json, "logfile")));
}

std::string stack_text(const Terminal& terminal, const EvidenceReport& report) {
    std::string out;
    size_t number = 0;
    for (const std::string& frame : report.backtrace)
        out += terminal.paint(Terminal::DIM, padded("#" + std::to_string(number++), 5)) +
               harmless(readable_frame(frame)) + "\n";
    return out;
}

std::string plain(const Json::Value& value) {
    if (value.isNull()) return {};
    if (!value.isString()) return corvo::json::write(value);
    const std::string text = value.asString();  // the daemon writes some with a blank before or after
    size_t begin = text.find_first_not_of(' ');
    return begin == std::string::npos ? std::string()
                                      : text.substr(begin, text.find_last_not_of(' ') - begin + 1);
}

}  // namespace brumectl
