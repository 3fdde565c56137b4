#pragma once
// The collectors, by name: whether and how often each hands a sample to the exporter. A sample can be
// requested at any time. The caller passes the time in. The collector of records is only listed here: it
// exports by itself; see Records.

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

    // These throw Error if the component doesn't exist or the interval is out of range.
    /** The first sample is due one interval later. Does nothing if already enabled. */
    void enable(const std::string& component, uint64_t now_ms);
    void disable(const std::string& component);
    /** If enabled, the new interval counts from now. */
    void set_interval(const std::string& component, uint64_t interval_ms, uint64_t now_ms);
    Json::Value sample(const std::string& component, const SampleSource& source) const;

    bool is_enabled(const std::string& component) const { return find(component).enabled; }
    /** Name, state and interval of each collector. */
    Json::Value list() const;

    /** Passes the due samples to `take`. Returns the time until the next one, at most a second, ms. */
    uint64_t tick(uint64_t now_ms, const SampleSource& source, const std::function<void(std::string)>& take);

 private:
    struct Collector {
        const char* name;
        Json::Value (*collect)(const SampleSource&);
        bool exported = true;  ///< whether its samples are
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
