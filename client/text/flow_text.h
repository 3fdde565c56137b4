#pragma once
// Rows for people and for programs, from the flows and hosts listed by the engine. Members that are unknown,
// and so absent there, are empty texts here.

#include <json/value.h>

#include <optional>
#include <string>

#include "client/text/terminal.h"

namespace brumectl::flow_text {

/** "10.0.0.1:80", "[fe80::1]:80"; `end` is "client" or "server". */
std::string endpoint(const Json::Value& flow, const char* end);
/** Equal for flows with the same ends, also if one begins after the other's end. Not for display. */
std::string id(const Json::Value& flow);
/** The client's name for the server: SNI, or else host. */
std::string server_name(const Json::Value& flow);
/** Seconds since the first packet; nothing if that isn't known. */
std::optional<double> age_sec(const Json::Value& flow, double now_sec);
/** The protocol, followed by "?" if it is a guess. */
std::string protocol(const Json::Value& flow);

/** The header line for flows, and one flow. */
std::string head(const Terminal& terminal);
std::string row(const Json::Value& flow);
/** Likewise for live traffic, with the age and without bold; `now_sec` is in seconds since 1970. */
std::string live_head();
std::string live_row(const Json::Value& flow, double now_sec);
/** Likewise for hosts. */
std::string host_head(const Terminal& terminal);
std::string host_row(const Json::Value& host);

/**
 * The CSV header line for flows, and one flow. The caller's own columns come first, each quoted and followed
 * by a comma. With `times`, also when the first and the last packet were seen.
 */
std::string csv_head(const std::string& own, bool times);
std::string csv_row(const std::string& own, const Json::Value& flow, bool times);
/** Quoted if necessary. */
std::string csv_cell(const std::string& text);

}  // namespace brumectl::flow_text
