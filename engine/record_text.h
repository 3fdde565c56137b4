#pragma once
// A record as a line of JSON.

#include <cstdint>
#include <string>
#include <string_view>

#include "flow_watcher.h"

namespace corvo::engine {

/** Appends a text in quotes; it must have no control characters. */
void append_quoted(std::string_view text, std::string& out);

/** What a record tells besides the flow. Times are microseconds since 1970. */
struct RecordFrame {
    uint64_t number = 0;
    uint64_t first_number = 0;  ///< that of the flow's first record
    std::string_view origin;    ///< members that all records share, each with a comma before it
    FlowWatcher::why_e why = FlowWatcher::ENDED;
    int64_t start_us = 0;
    int64_t since_us = 0;  ///< the end of the flow's last record; unless this is its first
    int64_t end_us = 0;
};

/** `traffic`: since the flow's last record. */
void append_record(const RecordFrame& frame, const Flow& flow, const FlowTraffic& traffic,
                   const Classifier& classifier, std::string& out);

}  // namespace corvo::engine
