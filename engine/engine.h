#pragma once
// The engine behind the entry points: everything that lives from init to deinit. It checks which call is
// allowed when. Every operation throws Error with a text for the caller, in which case nothing has changed.

#include <brumecpd/engine_api.h>

#include <memory>
#include <string>
#include <vector>

#include "capture_paths.h"
#include "classifiers.h"
#include "collectors.h"
#include "exporter.h"
#include "health.h"
#include "interfaces.h"
#include "named_path.h"
#include "options.h"
#include "records.h"
#include "workers.h"

namespace corvo::engine {

class Engine {
 public:
    /** `time_of_day`: microseconds since 1970. */
    explicit Engine(const api::InitConfig& config, const Options& options = {}, ClockFn clock = monotonic_ms,
                    ClockFn time_of_day = realtime_us);
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;
    /** Ends the records like `deactivate`. */
    ~Engine();

    /** With more than one worker, each has a thread, a share of the flow table, and one of the traffic. */
    void activate(const api::ActivateConfig& config);
    /**
     * Detaches the interfaces that are still attached. Throws Error if a worker doesn't end within a second;
     * may be tried again.
     */
    void deactivate();
    /**
     * Returns the delay until the next call, ms. `problem` reports a new problem once; the tick has succeeded
     * all the same.
     */
    int tick(std::string& problem);
    /** Becomes readable when a tick is wanted at once; open as long as the engine lives. */
    int event_fd() const { return m_interfaces.event_fd(); }

    /** Keeps workers from all flows. Hold it while working on a path that `path_of` has returned. */
    Workers::Pause pause() const { return m_workers ? m_workers->pause() : Workers::Pause(); }

    // A data path is addressed as "dp0", as "" (any), or as a capture's "capture:NAME".
    void push(const std::string& dpaddr, std::vector<api::pkt_>& pkts, bool extended);
    std::string coffee(const std::string& dpaddr, const std::string& func, const std::vector<uint32_t>& args);

    /**
     * Creates a capture's data path. Unless `answers` are needed, workers classify what is pushed to it, and
     * pushes return at once, as if nothing had got a class.
     */
    NamedPath& open(const std::string& dpaddr, bool answers);
    /** Throws Error if it doesn't exist. */
    NamedPath& path_of(const std::string& dpaddr);
    /** Ends a capture's data path; other paths can't be closed. */
    void close(const std::string& dpaddr);

    void attach(const std::string& ifname);
    void detach(const std::string& ifname);
    std::vector<std::string> attached() const;

    void enable_collector(const std::string& component);
    void disable_collector(const std::string& component);
    void set_collector_interval(const std::string& component, uint64_t interval_ms);
    Json::Value sample(const std::string& component);
    Json::Value collectors() const;
    void set_exporter(const api::ExporterConfig& config);

    Json::Value health(bool verbose);
    Json::Value health_configuration() const { return m_health.configuration(); }
    void configure_health(const Json::Value& conf) { m_health.configure(conf); }

    static Json::Value version();
    static const std::string& data_path_name();

 private:
    /** What has been reported about a full flow table, worst last. */
    enum fullness_e { ROOM, EVICTING, REFUSING };

    static void check_address(const std::string& dpaddr);
    Shards& path() const;
    Shards* live_path() const { return m_path ? &m_path->data : nullptr; }
    SampleSource source() const { return {live_path(), m_interfaces, m_records}; }
    void start_workers(unsigned count);
    void end_workers();
    uint64_t tick_live(uint64_t now_ms, std::string& problem);
    void watch_flows();
    void look_after(uint64_t now_ms);
    void watch_flow_table();
    uint64_t drops() const;
    uint64_t evictions() const;

    ClockFn m_clock;
    unsigned m_default_workers;
    Interfaces m_interfaces;
    Collectors m_collectors;
    Exporter m_exporter;
    Records m_records;
    Health m_health;
    LastMinute m_recent_drops;
    LastMinute m_recent_evictions;
    Classifiers m_classifiers;
    std::unique_ptr<NamedPath> m_path;  ///< "dp0", only while active
    CapturePaths m_captures;
    uint64_t m_instances = 0;  ///< number of data paths ever created
    uint64_t m_path_due_ms = 0;
    uint64_t m_captures_due_ms = 0;
    uint64_t m_look_after_due_ms = 0;
    uint64_t m_refused = 0;  ///< packets refused for lack of room in the flow table, as of the last check
    uint64_t m_evicted = 0;  ///< flows evicted to make room, likewise
    uint64_t m_past_refused = 0;  ///< refused packets of earlier data paths
    uint64_t m_past_evicted = 0;
    fullness_e m_told = ROOM;
    std::unique_ptr<Workers> m_workers;  ///< null if the calling thread is the only one
};

}  // namespace corvo::engine
