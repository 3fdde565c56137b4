#include "client/text/flow_text.h"

#include <algorithm>
#include <cstdio>

#include "client/text/json_access.h"
#include "infra/json/corvo_json.h"

namespace brumectl::flow_text {

namespace {

constexpr size_t ENDPOINT_COLUMNS = 21, PROTOCOL_COLUMNS = 20, HOST_COLUMNS = 39, NUMBER_COLUMNS = 10,
                 AGE_COLUMNS = 14;

/** Beyond it, what an engine says of a time can't be meant. */
constexpr double LONGEST_AGE_SEC = 1e9;

// clang-format off
constexpr const char* CSV_MEMBERS[] = {
    "client", "client_port", "server", "server_port", "transport", "protocol", "category", "packets", "bytes",
    "packets_to_server", "bytes_to_server", "guessed", "confidence", "host", "sni", "alpn", "ja3c", "ja3s",
    "hassh_client", "hassh_server", "risks", "ns_id",
};
constexpr const char* TIME_MEMBERS[] = {"first_seen", "last_seen"};
// clang-format on

std::string right(const std::string& text, size_t width) {
    return std::string(width - std::min(width, columns(text)), ' ') + text;
}

std::string without_end_blanks(std::string line) {
    line.erase(line.find_last_not_of(' ') + 1);
    return line + "\n";
}

std::string csv_text(const Json::Value& value) {
    if (value.isNull()) return {};
    if (!value.isArray()) return value.isString() ? value.asString() : corvo::json::write(value);
    std::string out;
    for (const Json::Value& item : value)
        out += (out.empty() ? "" : "; ") + csv_text(item);
    return out;
}

/** Without the digits beyond milliseconds that its binary form has. */
std::string time_cell(const Json::Value& time) {
    char text[350] = "";
    if (time.isNumeric()) snprintf(text, sizeof(text), "%.3f", time.asDouble());
    return text;
}

/** The columns between the two ends and the name. `age` is a column of its own, or empty. */
std::string line_of(const Json::Value& flow, const std::string& age) {
    return without_end_blanks(padded(endpoint(flow, "client"), ENDPOINT_COLUMNS) + " -> " +
                              padded(endpoint(flow, "server"), ENDPOINT_COLUMNS) + "  " +
                              padded(harmless(string_of(member_of(flow, "transport"))), 4) + "  " +
                              padded(protocol(flow), PROTOCOL_COLUMNS) + age +
                              right(count_text(count_of(member_of(flow, "packets"))), NUMBER_COLUMNS) + "  " +
                              right(bytes_text(count_of(member_of(flow, "bytes"))), NUMBER_COLUMNS) + "  " +
                              server_name(flow));
}

std::string head_of(const std::string& age) {
    return padded("CLIENT", ENDPOINT_COLUMNS) + "    " + padded("SERVER", ENDPOINT_COLUMNS) + "  OVER  " +
           padded("PROTOCOL", PROTOCOL_COLUMNS) + age + "   PACKETS       BYTES  NAME";
}

}  // namespace

std::string endpoint(const Json::Value& flow, const char* end) {
    const std::string address = harmless(string_of(member_of(flow, end)));
    const Json::Value& port = member_of(flow, (std::string(end) + "_port").c_str());
    if (!port.isUInt64()) return address;
    const bool has_colons = address.find(':') != std::string::npos;
    return (has_colons ? "[" + address + "]" : address) + ":" + std::to_string(port.asUInt64());
}

std::string id(const Json::Value& flow) {
    std::string out = endpoint(flow, "client") + " " + endpoint(flow, "server") + " " +
                      string_of(member_of(flow, "transport"));
    for (const char* member : {"ns_id", "vlan"})
        out += " " + std::to_string(count_of(member_of(flow, member)));
    return out;
}

std::string server_name(const Json::Value& flow) {
    const std::string sni = string_of(member_of(flow, "sni"));
    return harmless(sni.empty() ? string_of(member_of(flow, "host")) : sni);
}

std::string protocol(const Json::Value& flow) {
    return harmless(string_of(member_of(flow, "protocol"))) +
           (member_of(flow, "guessed") == true ? " ?" : "");
}

std::optional<double> age_sec(const Json::Value& flow, double now_sec) {
    const Json::Value& first = member_of(flow, "first_seen");
    if (!first.isNumeric()) return std::nullopt;
    return std::clamp(now_sec - first.asDouble(), 0.0, LONGEST_AGE_SEC);
}

std::string head(const Terminal& terminal) {
    return terminal.paint(Terminal::BOLD, head_of("")) + "\n";
}

std::string row(const Json::Value& flow) {
    return line_of(flow, "");
}

std::string live_head() {
    return head_of(right("AGE", AGE_COLUMNS)) + "\n";
}

std::string live_row(const Json::Value& flow, double now_sec) {
    const std::optional<double> age = age_sec(flow, now_sec);
    return line_of(flow, right(age ? duration_text(static_cast<uint64_t>(*age)) : "-", AGE_COLUMNS));
}

std::string host_head(const Terminal& terminal) {
    return terminal.paint(Terminal::BOLD, padded("HOST", HOST_COLUMNS) + "     FLOWS   PACKETS       BYTES") +
           "\n";
}

std::string host_row(const Json::Value& host) {
    return padded(harmless(string_of(member_of(host, "address"))), HOST_COLUMNS) +
           right(count_text(count_of(member_of(host, "flows"))), NUMBER_COLUMNS) +
           right(count_text(count_of(member_of(host, "packets"))), NUMBER_COLUMNS) + "  " +
           right(bytes_text(count_of(member_of(host, "bytes"))), NUMBER_COLUMNS) + "\n";
}

std::string csv_head(const std::string& own, bool times) {
    std::string out = own;
    for (const char* member : CSV_MEMBERS)
        out += member + std::string(",");
    for (const char* member : TIME_MEMBERS)
        if (times) out += member + std::string(",");
    out.back() = '\n';
    return out;
}

std::string csv_row(const std::string& own, const Json::Value& flow, bool times) {
    std::string out = own;
    for (const char* member : CSV_MEMBERS)
        out += csv_cell(csv_text(member_of(flow, member))) + ",";
    for (const char* member : TIME_MEMBERS)
        if (times) out += time_cell(member_of(flow, member)) + ",";
    out.back() = '\n';
    return out;
}

std::string csv_cell(const std::string& text) {
    if (text.find_first_of("\",\r\n") == std::string::npos) return text;
    std::string out = "\"";
    for (char c : text)
        out += c == '"' ? "\"\"" : std::string(1, c);
    return out + "\"";
}

}  // namespace brumectl::flow_text
