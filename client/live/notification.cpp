#include "client/live/notification.h"

#include <algorithm>

#include "client/text/json_access.h"

namespace brumectl {

namespace {

constexpr struct {
    const char* word;
    int rank;
    Terminal::colour_e colour;
} SEVERITIES[] = {
    {"info", 1, Terminal::PLAIN},
    {"warn", 2, Terminal::YELLOW},
    {"severe", 3, Terminal::RED},
    {"error", 3, Terminal::RED},
};

}  // namespace

Json::Value notifications_params(const char* cmd, const char* op) {
    Json::Value params;
    params["cmd"] = cmd;
    params["op"] = op;
    return params;
}

int severity_rank(const std::string& severity) {
    for (const auto& known : SEVERITIES)
        if (severity == known.word) return known.rank;
    return 0;
}

Terminal::colour_e severity_colour(const std::string& severity) {
    for (const auto& known : SEVERITIES)
        if (severity == known.word) return known.colour;
    return Terminal::PLAIN;
}

std::optional<Notification> Notification::read(const Json::Value& value) {
    Notification event;
    event.id = count_of(member_of(value, "id"));
    if (event.id == 0 || !member_of(value, "name").isString()) return std::nullopt;
    constexpr uint64_t LAST_SECOND = 253402300799;  // of the year 9999
    event.ts = static_cast<int64_t>(std::min(count_of(member_of(value, "ts")), LAST_SECOND));
    event.severity = string_of(member_of(value, "sev"));
    event.feature = string_of(member_of(value, "feature"));
    event.name = string_of(member_of(value, "name"));
    event.text = string_of(member_of(value, "desc"));
    return event;
}

std::string Notification::line(const Terminal& terminal) const {
    std::string what = padded(harmless(feature), 8) + "  " + harmless(name);
    if (!text.empty()) what = padded(what, 28) + "  " + harmless(text);
    return terminal.paint(Terminal::DIM, time_text(ts)) + "  " +
           terminal.paint(severity_colour(severity), padded(harmless(severity), 6)) + "  " + what;
}

bool EventSequence::take(uint64_t id) {
    if (id <= m_last) return false;
    m_last = id;
    return true;
}

}  // namespace brumectl
