#pragma once
// The collectors by name: whether and how often each gives a sample to the exporter. A sample can be asked
// for at any time. Time is handed in.

#include <json/value.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "samples.h"

namespace corvo::engine {

class Collectors {
 public:
    static constexpr uint64_t MIN_INTERVAL_MS = 100;
    static constexpr uint64_t MAX_INTERVAL_MS = uint64_t{24} * 3600 * 1000;

    Collectors();

    // Each throws Error if there is no such component, or if the interval is out of bounds.
    /** The first sample comes one interval later. Nothing if it is enabled. */
    void enable(const std::string& component, uint64_t now_ms);
    void disable(const std::string& component);
    /** Counted from now, if it is enabled. */
    void set_interval(const std::string& component, uint64_t interval_ms, uint64_t now_ms);
    Json::Value sample(const std::string& component, const SampleSource& source) const;

    /** Name, state and interval of each. */
    Json::Value list() const;

    /** Hands the samples that are due to `take`; gives the time to the next one, ms, a second at most. */
    uint64_t tick(uint64_t now_ms, const SampleSource& source, const std::function<void(std::string)>& take);

 private:
    struct Collector {
        const char* name;
        Json::Value (*collect)(const SampleSource&);
        bool enabled = false;
        uint64_t interval_ms = 60000;
        uint64_t due_ms = 0;
    };

    const Collector& find(const std::string& component) const;
    Collector& find(const std::string& component);
    static Json::Value sample_of(const Collector& collector, const SampleSource& source);

    std::vector<Collector> m_collectors;
};

}  // namespace corvo::engine
