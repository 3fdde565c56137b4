#pragma once
// Rows for people and for programs, from the flows and hosts listed by the engine. Members that are unknown,
// and so absent there, are empty texts here.

#include <json/value.h>

#include <string>

#include "client/text/terminal.h"

namespace brumectl::flow_text {

/** "10.0.0.1:80", "[fe80::1]:80"; `end` is "client" or "server". */
std::string endpoint(const Json::Value& flow, const char* end);
/** The client's name for the server: SNI, or else host. */
std::string server_name(const Json::Value& flow);
/** The protocol, followed by "?" if it is a guess. */
std::string protocol(const Json::Value& flow);

/** The header line for flows, and one flow. */
std::string head(const Terminal& terminal);
std::string row(const Json::Value& flow);
/** Likewise for hosts. */
std::string host_head(const Terminal& terminal);
std::string host_row(const Json::Value& host);

/** The CSV header line for flows, and one flow. */
std::string csv_head();
std::string csv_row(const std::string& file, const Json::Value& flow);

}  // namespace brumectl::flow_text
