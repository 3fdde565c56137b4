#pragma once
// The collectors' samples as JSON: the counters at the moment of asking. Their members are explained
// in docs/engine-collectors.md.

#include <json/value.h>

#include "interfaces.h"
#include "records.h"
#include "shards.h"

namespace corvo::engine {

/** Source of the counters. */
struct SampleSource {
    const Shards* path;  ///< null while there is no data path; its counts are then 0
    const Interfaces& interfaces;
    const Records& records;
};

Json::Value flows_sample(const SampleSource& source);
Json::Value protocols_sample(const SampleSource& source);
Json::Value interfaces_sample(const SampleSource& source);
/** How far the records are, not the records. */
Json::Value records_sample(const SampleSource& source);

Json::Value traffic_json(const Traffic& traffic);
/** Packets that weren't classified, by cause. */
Json::Value errors_json(const Shards* path);

/** Flow table use in percent, rounded down. */
uint64_t flow_table_use(const Shards* path);

}  // namespace corvo::engine
