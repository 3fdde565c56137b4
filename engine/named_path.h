#pragma once
// A data path together with its name and the lists made from its flows.

#include <cstdint>
#include <string>
#include <utility>

#include "flow_lists.h"
#include "shards.h"

namespace corvo::engine {

struct NamedPath {
    /** `instance` is unique among all paths ever created, starting at 1. */
    NamedPath(std::string path_name, uint64_t path_instance, Classifiers& classifiers, uint32_t max_flows,
              unsigned shards, DataPath::kind_e kind, ClockFn clock)
        : name(std::move(path_name)),
          instance(path_instance),
          data(classifiers, max_flows, shards, kind, clock),
          lists(data, path_instance << 24, clock) {}

    const std::string name;
    const uint64_t instance;
    Shards data;
    FlowLists lists;
    uint64_t used_ms = 0;  ///< when it was last named in a call
};

}  // namespace corvo::engine
