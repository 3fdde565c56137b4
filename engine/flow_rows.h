#pragma once
// Flows as JSON, for the methods that list them.

#include <json/value.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "data_path.h"

namespace corvo::engine {

/** A row and an upper estimate of its text's size in bytes. */
struct Row {
    Json::Value json;
    size_t bytes = 0;
};

/** What all rows of a list have in common. */
struct RowStyle {
    bool guess = true;        ///< if false, a guessed flow is shown as unclassified
    bool times = false;       ///< whether the flows' times are those of their packets
    int64_t realtime_ms = 0;  ///< add to a flow's time to get the time of day
};

/** Takes a row's members one by one. Names are literals; texts are UTF-8 without control characters. */
class RowMembers {
 public:
    virtual ~RowMembers() = default;

    virtual void text(const char* name, std::string_view value) = 0;
    virtual void number(const char* name, uint64_t value) = 0;
    virtual void flag(const char* name, bool value) = 0;
    virtual void texts(const char* name, const std::vector<std::string_view>& values) = 0;
};

/** Everything in a row but the times. `traffic`: what to report as the flow's. */
void tell_flow(const Flow& flow, const FlowTraffic& traffic, const Classifier& classifier, bool guess,
               RowMembers& row);

Row flow_row(const Flow& flow, const Classifier& classifier, const RowStyle& style);

/** "10.0.0.1" or "fd00::1"; `address` is 4 or 16 bytes in network order. */
std::string address_text(uint8_t version, const void* address);

}  // namespace corvo::engine
