#pragma once
// Flows and hosts, as the engine lists them, in rows for people and for programs. What is unknown is absent
// there and an empty text here.

#include <json/value.h>

#include <string>

#include "client/text/terminal.h"

namespace brumectl::flow_text {

/** "10.0.0.1:80", "[fe80::1]:80"; `end` is "client" or "server". */
std::string endpoint(const Json::Value& flow, const char* end);
/** What the client called the server: SNI, else host. */
std::string server_name(const Json::Value& flow);
/** The protocol, with "?" behind a guess. */
std::string protocol(const Json::Value& flow);

/** The line above flows, and one flow. */
std::string head(const Terminal& terminal);
std::string row(const Json::Value& flow);
/** The same of hosts. */
std::string host_head(const Terminal& terminal);
std::string host_row(const Json::Value& host);

/** The line above flows in CSV, and one flow. */
std::string csv_head();
std::string csv_row(const std::string& file, const Json::Value& flow);

}  // namespace brumectl::flow_text
