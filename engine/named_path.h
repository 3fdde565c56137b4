#pragma once
// A data path with what goes with it: its name, and the lists that are made of its flows.

#include <cstdint>
#include <string>
#include <utility>

#include "data_path.h"
#include "flow_lists.h"

namespace corvo::engine {

struct NamedPath {
    /** `instance` is another number for each path that ever was, from 1 on. */
    NamedPath(std::string path_name, uint64_t path_instance, Classifiers& classifiers, uint32_t max_flows,
              DataPath::kind_e kind, ClockFn clock)
        : name(std::move(path_name)),
          instance(path_instance),
          data(classifiers, max_flows, kind, clock),
          lists(data, path_instance << 24, clock) {}

    const std::string name;
    const uint64_t instance;
    DataPath data;
    FlowLists lists;
    uint64_t used_ms = 0;  ///< when somebody named it last
};

}  // namespace corvo::engine
