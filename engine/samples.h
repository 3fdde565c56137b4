#pragma once
// The samples of the collectors, as JSON: what is counted, at the moment of asking. What the members mean is
// in docs/engine-collectors.md.

#include <json/value.h>

#include "data_path.h"
#include "interfaces.h"

namespace corvo::engine {

/** Where the numbers come from. */
struct SampleSource {
    const DataPath* path;  ///< null while there is no data path; then its counts are 0
    const Interfaces& interfaces;
};

Json::Value flows_sample(const SampleSource& source);
Json::Value protocols_sample(const SampleSource& source);
Json::Value interfaces_sample(const SampleSource& source);

Json::Value traffic_json(const Traffic& traffic);
/** Packets that weren't classified, by cause. */
Json::Value errors_json(const DataPath* path);

/** How full the flow table is, percent, rounded down. */
uint64_t flow_table_use(const DataPath* path);

}  // namespace corvo::engine
