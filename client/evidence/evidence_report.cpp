#include "client/evidence/evidence_report.h"

#include <cxxabi.h>

#include <algorithm>
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "client/text/json_access.h"
#include "infra/json/corvo_json.h"

namespace brumectl {

namespace {

constexpr const char* STACK_MEMBER = "\"backtrace\":\"";
constexpr int FATAL[] = {SIGSEGV, SIGILL, SIGABRT, SIGFPE, SIGBUS, SIGSYS};
constexpr size_t MAX_FRAMES = 1000;
/** Longer than any compiler's names, so not worth the time to demangle. */
constexpr size_t MAX_MANGLED = 4096;

std::vector<std::string> lines_of(const std::string& text) {
    std::vector<std::string> lines;
    for (size_t at = 0; at < text.size() && lines.size() < MAX_FRAMES;) {
        size_t end = std::min(text.find('\n', at), text.size());
        if (end > at) lines.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return lines;
}

/** Finds a signal by the C library's description; null if it isn't one of the fatal ones. */
const char* fatal_signal(const std::string& description) {
    for (int signum : FATAL)
        if (description == sigdescr_np(signum)) return sigabbrev_np(signum);
    return nullptr;
}

void read_stall(const std::string& dump, EvidenceReport& report) {
    constexpr const char* TIME = "time: ";
    report.cause = EvidenceReport::STALL;
    for (std::string& line : lines_of(dump)) {
        if (line.rfind(TIME, 0) == 0)
            std::from_chars(line.data() + strlen(TIME), line.data() + line.size(), report.time);
        else if (line.find('[') != std::string::npos)
            report.backtrace.push_back(std::move(line));
    }
}

void append_escaped(std::string& out, char c) {
    constexpr const char* DIGITS = "0123456789abcdef";
    auto byte = static_cast<unsigned char>(c);
    if (c == '\n') {
        out += "\\n";
    } else if (byte < 0x20) {
        out += std::string("\\u00") + DIGITS[byte >> 4] + DIGITS[byte & 15];
    } else {
        out += c;
    }
}

/** Escapes control characters within strings; leaves everything else as is. */
std::string with_escapes(const std::string& text) {
    std::string out;
    bool in_string = false;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '"') in_string = !in_string;
        if (in_string && text[i] == '\\' && i + 1 < text.size()) out += text[i++];
        if (in_string)
            append_escaped(out, text[i]);
        else
            out += text[i];
    }
    return out;
}

}  // namespace

const char* cause_text(EvidenceReport::cause_e cause) {
    constexpr const char* TEXTS[] = {"killed", "crash", "stall", "stop", "unknown"};
    return TEXTS[cause];
}

std::string repaired_json(const std::string& text) {
    size_t stack = text.rfind(STACK_MEMBER);
    if (stack == std::string::npos) return with_escapes(text);
    stack += strlen(STACK_MEMBER);
    // The stack is the last member. Its paths may contain quotes, and its writer may have died before
    // the end.
    size_t end = text.find_last_not_of(" \n");
    bool whole = end != std::string::npos && end > stack && text[end] == '}' && text[end - 1] == '"';
    std::string out = with_escapes(text.substr(0, stack));
    for (size_t i = stack; i < (whole ? end - 1 : text.size()); ++i) {
        if (text[i] == '"' || text[i] == '\\') out += '\\';
        append_escaped(out, text[i]);
    }
    return out + "\"}";
}

EvidenceReport EvidenceReport::from_json_text(const std::string& text) {
    Json::Value json;
    if (!corvo::json::parse(text, json)) corvo::json::parse(repaired_json(text), json);
    return from_json(std::move(json));
}

EvidenceReport EvidenceReport::from_json(Json::Value json) {
    EvidenceReport report;
    if (!json.isObject()) return report;
    report.version = string_of(json["version"]);
    if (string_of(json["type"]) == "hog") {
        read_stall(string_of(json["backtrace"]), report);
    } else {
        const std::string words = string_of(json["signal"]);
        const char* signal = fatal_signal(words);
        report.cause = signal != nullptr ? CRASH : STOP;
        report.signal = signal != nullptr ? std::string("SIG") + signal : words;
        report.time = count_of(json["time"]);
        report.backtrace = lines_of(string_of(json["backtrace"]));
    }
    report.json = std::move(json);
    return report;
}

EvidenceReport EvidenceReport::from_stall_dump(const std::string& text) {
    EvidenceReport report;
    read_stall(text, report);
    return report;
}

std::string readable_frame(const std::string& frame) {
    constexpr const char* GUESS = "? ";
    if (frame.rfind(GUESS, 0) == 0) return GUESS + readable_frame(frame.substr(strlen(GUESS)));
    size_t open = frame.find('(');
    size_t close = frame.find(')', open == std::string::npos ? 0 : open);
    if (open == std::string::npos || close == std::string::npos) return frame;
    std::string file = frame.substr(0, open);
    file = file.substr(file.rfind('/') + 1);
    std::string inside = frame.substr(open + 1, close - open - 1);
    size_t plus = inside.rfind('+');
    std::string symbol = inside.substr(0, plus);
    if (symbol.empty()) return "(" + inside + ")  " + file;
    int status = -1;
    std::unique_ptr<char, decltype(&std::free)> demangled(
        symbol.size() > MAX_MANGLED ? nullptr
                                    : abi::__cxa_demangle(symbol.c_str(), nullptr, nullptr, &status),
        &std::free);
    std::string name = demangled && status == 0 ? demangled.get() : symbol;
    return name + (plus == std::string::npos ? std::string() : inside.substr(plus)) + "  " + file;
}

}  // namespace brumectl
