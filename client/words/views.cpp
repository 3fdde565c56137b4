#include "client/words/views.h"

#include <algorithm>

#include "client/evidence/report_text.h"
#include "client/live/notification.h"
#include "client/text/engine_state.h"
#include "client/text/flow_text.h"
#include "client/text/json_access.h"
#include "client/text/method_table.h"
#include "client/text/render.h"

namespace brumectl {

namespace {

constexpr struct {
    const char* mark;
    Terminal::colour_e colour;
} LOG_COLOURS[] = {
    {"][ERROR]", Terminal::RED},
    {"][WARN ]", Terminal::YELLOW},
    {"][WARN]", Terminal::YELLOW},
    {"][DEBUG]", Terminal::DIM},
};

std::string process_memory(const Json::Value& memory) {
    return bytes_text(count_of(member_of(memory, "current")) * MIB) + " (at most " +
           bytes_text(count_of(member_of(memory, "max")) * MIB) + ")";
}

/** Like the other views, returns an empty text if the result isn't what it expects. */
std::string status_view(const Terminal& terminal, const Json::Value& result) {
    if (!member_of(result, "state").isString()) return "";
    const Json::Value& memory = member_of(result, "mem");
    const Json::Value& process = member_of(memory, "process");
    std::string state = text_of(member_of(result, "state"));
    std::vector<std::pair<std::string, std::string>> lines = {
        {"state", terminal.paint(state_colour(state), state)},
        {"mode", text_of(member_of(result, "mode"))},
        {"uptime", duration_text(count_of(member_of(result, "uptime")))},
        {"process", std::to_string(count_of(member_of(result, "pid")))},
        {"memory", process_memory(member_of(process, "phy_mem"))},
        {"address space", process_memory(member_of(process, "virt_mem"))},
        {"interfaces", list_of(member_of(result, "attached"))},
        {"data paths", list_of(member_of(result, "dps"))},
        {"log file", text_of(member_of(result, "logfile"))},
        {"kernel", text_of(member_of(result, "kernel"))},
        {"machine", text_of(member_of(result, "arch")) + ", " +
                        bytes_text(count_of(member_of(memory, "free_mem")) * MIB) + " free of " +
                        bytes_text(count_of(member_of(memory, "total_mem")) * MIB)}};
    const Json::Value& version = member_of(result, "version");
    if (version.isObject())
        for (const std::string& name : version.getMemberNames())
            lines.emplace_back("engine " + harmless(name), line_of(version[name]));
    else if (!version.isNull())
        lines.emplace_back("engine", line_of(version));
    return key_lines(terminal, lines);
}

std::string cmds_view(const Terminal& terminal, const Json::Value& result) {
    if (!result.isArray()) return "";
    const MethodTable& table = MethodTable::get();
    std::vector<std::string> names;
    for (const Json::Value& name : result)
        if (name.isString()) names.push_back(name.asString());
    std::sort(names.begin(), names.end());
    TextTable text({"method", "what it does"});
    for (const std::string& name : names) {
        const Method* method = table.find(name);
        text.add({{harmless(name)}, {method == nullptr ? "(the engine's own)" : method->summary}});
    }
    return text.text(terminal);
}

std::string hogs_view(const Terminal& terminal, const Json::Value& result) {
    const Json::Value& events = member_of(result, "events");
    if (!events.isArray()) return "";
    if (events.empty()) return "no stalls\n";
    std::string out;
    for (const Json::Value& event : events) {
        const EvidenceReport report = EvidenceReport::from_json(event);
        const std::string stack = stack_text(terminal, report);
        out += (out.empty() ? "" : "\n") +
               field_text(terminal, "time",
                          report.time > 0 ? time_text(static_cast<int64_t>(report.time)) : "-") +
               report_text(terminal, report) + (stack.empty() ? "" : "\n") + stack;
    }
    return out;
}

/** A collector's sample is recognised by its time. */
std::string collect_view(const Terminal& terminal, const Json::Value& result) {
    if (!member_of(result, "time").isUInt64()) return "";
    Json::Value shown = result;
    shown["time"] = time_text(static_cast<int64_t>(count_of(result["time"])));
    return render(terminal, shown, nullptr);
}

TextTable::Cell severity_cell(const Json::Value& event) {
    std::string severity = text_of(member_of(event, "sev"));
    return {severity, false, severity_colour(severity)};
}

TextTable::Cell time_cell(const Json::Value& value) {
    return {time_text(static_cast<int64_t>(count_of(value)))};
}

std::string event_name(const Json::Value& event) {
    return text_of(member_of(event, "feature")) + "." + text_of(member_of(event, "name"));
}

std::string notifications_view(const Terminal& terminal, const Json::Value& result) {
    const Json::Value& log = member_of(member_of(result, "notif"), "log");
    const Json::Value& alerts = member_of(member_of(result, "notif"), "alerts");
    if (!log.isArray() && !alerts.isArray()) return "";
    TextTable events({"id", "time", "severity", "event", "description"});
    for (const Json::Value& event : log)
        events.add({{std::to_string(count_of(member_of(event, "id"))), true},
                    time_cell(member_of(event, "ts")),
                    severity_cell(event),
                    {event_name(event)},
                    {text_of(member_of(event, "desc"))}});
    if (log.isArray()) return log.empty() ? "no events\n" : events.text(terminal);
    TextTable counts({"last", "severity", "alert", "count"});
    for (const Json::Value& alert : alerts)
        counts.add({time_cell(member_of(alert, "last_ts")),
                    severity_cell(alert),
                    {event_name(alert)},
                    {count_text(count_of(member_of(alert, "count"))), true}});
    return alerts.empty() ? "no alerts\n" : counts.text(terminal);
}

std::string log_view(const Terminal& terminal, const Json::Value& result) {
    const Json::Value& lines = member_of(result, "log");
    if (!lines.isArray()) return "";
    std::string out;
    for (const Json::Value& line : lines)
        if (line.isString()) out += log_line(terminal, line.asString()) + "\n";
    return lines.empty() ? "the log is empty\n" : out;
}

std::string packet_table(const Terminal& terminal, const Json::Value& packets) {
    if (packets.empty()) return "no classified packets\n";
    TextTable table({"source", "destination", "bytes", "over", "protocol", "class", "path", "error"});
    for (const Json::Value& packet : packets) {
        std::string path;
        for (const Json::Value& name : member_of(packet, "tph"))
            path += (path.empty() ? "" : "/") + text_of(name);
        table.add({{text_of(member_of(packet, "src"))},
                   {text_of(member_of(packet, "dst"))},
                   {std::to_string(count_of(member_of(packet, "len"))), true},
                   {text_of(member_of(packet, "transport"))},
                   {text_of(member_of(packet, "protocol"))},
                   {std::to_string(count_of(member_of(packet, "cls"))), true},
                   {path},
                   {text_of(member_of(packet, "error"))}});
    }
    return table.text(terminal);
}

std::string push_view(const Terminal& terminal, const Json::Value& result) {
    if (member_of(result, "pkts").isArray()) return packet_table(terminal, member_of(result, "pkts"));
    const Json::Value& total = member_of(result, "total");
    if (!total.isUInt64()) return "";
    std::vector<std::pair<uint64_t, std::string>> counts;
    for (const std::string& name : result.getMemberNames())
        if (name != "total") counts.emplace_back(count_of(result[name]), name);
    std::sort(counts.rbegin(), counts.rend());
    TextTable table({"protocol", "packets", "share", ""});
    for (const auto& [count, name] : counts) {
        double share = static_cast<double>(count) / std::max(1.0, static_cast<double>(total.asUInt64()));
        table.add({{harmless(name)},
                   {count_text(count), true},
                   {percent_text(share), true},
                   {bar(share, 24), false, Terminal::CYAN}});
    }
    table.add({{"total", false, Terminal::BOLD}, {count_text(total.asUInt64()), true}, {"", true}, {""}});
    return table.text(terminal);
}

/** For our engine's methods. */
std::string list_view(const Terminal& terminal, const Json::Value& result, const char* member,
                      std::string (*head)(const Terminal&), std::string (*row)(const Json::Value&)) {
    const Json::Value& rows = member_of(result, member);
    if (!rows.isArray()) return "";
    std::string out = head(terminal);
    for (const Json::Value& value : rows)
        out += row(value);
    const uint64_t total = count_of(member_of(result, "total"));
    const std::string cursor = text_of(member_of(result, "cursor"));
    if (cursor.empty()) return out;
    return out +
           terminal.paint(Terminal::DIM, count_text(rows.size()) + " of " + count_text(total) +
                                             "; the next with --cursor " + cursor) +
           "\n";
}

std::string flows_view(const Terminal& terminal, const Json::Value& result) {
    return list_view(terminal, result, "flows", flow_text::head, flow_text::row);
}

std::string hosts_view(const Terminal& terminal, const Json::Value& result) {
    return list_view(terminal, result, "hosts", flow_text::host_head, flow_text::host_row);
}

constexpr struct {
    const char* method;
    std::string (*view)(const Terminal&, const Json::Value&);
} VIEWS[] = {
    {"status", status_view},     {"cmds", cmds_view},
    {"events", hogs_view},       {"notifications", notifications_view},
    {"log", log_view},           {"push_pcap", push_view},
    {"collect", collect_view},   {"flows.list", flows_view},
    {"flows.hosts", hosts_view},
};

}  // namespace

std::string view(const Terminal& terminal, const std::string& method, const Json::Value& result) {
    for (const auto& own : VIEWS)
        if (method == own.method)
            if (std::string text = own.view(terminal, result); !text.empty()) return text;
    const Method* known = MethodTable::get().find(method);
    return render(terminal, result, known == nullptr ? nullptr : &(*known->document)["result"]["schema"]);
}

std::string log_line(const Terminal& terminal, const std::string& line) {
    std::string text = harmless(line);
    for (const auto& level : LOG_COLOURS)
        if (text.find(level.mark) != std::string::npos) return terminal.paint(level.colour, text);
    return text;
}

}  // namespace brumectl
