#pragma once
// Flows as JSON, for the methods that list them.

#include <json/value.h>

#include <cstddef>
#include <string>

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

Row flow_row(const Flow& flow, const Classifier& classifier, const RowStyle& style);

/** "10.0.0.1" or "fd00::1"; `address` is 4 or 16 bytes in network order. */
std::string address_text(uint8_t version, const void* address);

}  // namespace corvo::engine
