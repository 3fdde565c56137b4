#include "engine.h"

#include <algorithm>
#include <utility>

#include "coffee.h"
#include "engine_error.h"
#include "notice.h"

namespace corvo::engine {
namespace {

constexpr const char* ENGINE_VERSION = "1.2";
constexpr uint64_t LOOK_AFTER_MS = 1000;
/** A full table counts as full until its use falls to this, percent. */
constexpr uint64_t ROOM_AGAIN = 90;

}  // namespace

// The flow table lives in this process's own memory, so the configured shared memory isn't needed, and
// neither is the address. The command table is for the methods, which this class doesn't know.
Engine::Engine(const api::InitConfig&, const Options& options, ClockFn clock, ClockFn time_of_day)
    : m_clock(clock),
      m_default_workers(static_cast<unsigned>(options.workers)),
      m_interfaces(options.ring_bytes),
      m_records(options, clock, time_of_day),
      m_captures(m_classifiers, clock) {}

Engine::~Engine() {
    m_workers.reset();
    if (m_path) m_path->data.kill_all_flows();
    m_records.close();
}

void Engine::activate(const api::ActivateConfig& config) {
    if (m_path) throw Error("the data path is already active");
    m_classifiers.restock();  // for whoever needs the first one
    const unsigned workers = config.dp_workers > 1 ? config.dp_workers : m_default_workers;
    m_path = std::make_unique<NamedPath>(data_path_name(), ++m_instances, m_classifiers, config.max_flows,
                                         workers, DataPath::LIVE, m_clock);
    m_path_due_ms = m_captures_due_ms = 0;
    watch_flows();
    try {
        start_workers(m_path->data.count());
    } catch (...) {
        m_path.reset();
        throw;
    }
}

void Engine::start_workers(unsigned count) {
    if (count == 1) return;
    m_interfaces.make_worker_lanes(count);
    try {
        m_workers = std::make_unique<Workers>(m_interfaces, m_path->data);
    } catch (...) {
        m_interfaces.make_worker_lanes(0);
        throw;
    }
}

void Engine::end_workers() {
    if (!m_workers) return;
    m_workers->end();
    m_workers.reset();
}

void Engine::deactivate() {
    Shards& live = path();
    end_workers();
    m_interfaces.detach_all();
    m_interfaces.make_worker_lanes(0);
    live.kill_all_flows();
    m_records.flush();
    m_past_refused += live.errors(api::PKT_MAX_FLOWS_REACHED);
    m_past_evicted += live.evicted();
    m_path.reset();
    m_captures.close_all();
    m_refused = m_evicted = 0;
    m_told = ROOM;
}

Shards& Engine::path() const {
    if (!m_path) throw Error("the data path isn't active");
    return m_path->data;
}

NamedPath& Engine::path_of(const std::string& dpaddr) {
    check_address(dpaddr);
    path();
    if (!CapturePaths::is_capture(dpaddr)) return *m_path;
    if (NamedPath* capture = m_captures.find(dpaddr)) return *capture;
    throw Error("there is no data path " + quoted(dpaddr) +
                ": it comes with the first push to it, and ends when it is closed or unused for a minute");
}

NamedPath& Engine::open(const std::string& dpaddr, bool answers) {
    check_address(dpaddr);
    path();
    if (!CapturePaths::is_capture(dpaddr))
        throw Error("data path '" + data_path_name() + "' can't be opened, only that of a capture");
    if (m_captures.find(dpaddr)) throw Error("there is a data path " + quoted(dpaddr) + " already");
    return m_captures.open(dpaddr, ++m_instances, answers || !m_workers ? 1 : m_workers->count());
}

void Engine::close(const std::string& dpaddr) {
    NamedPath& closed = path_of(dpaddr);
    if (&closed == m_path.get())
        throw Error("data path '" + data_path_name() + "' can't be closed, only that of a capture");
    m_captures.close(dpaddr);
}

int Engine::tick(std::string& problem) {
    const uint64_t now_ms = m_clock();
    uint64_t delay_ms = tick_live(now_ms, problem);
    // Since its pause, no worker has a packet for a path that may end now.
    if (now_ms >= m_captures_due_ms) m_captures_due_ms = now_ms + m_captures.tick(now_ms);
    delay_ms = std::min(delay_ms, m_captures_due_ms - now_ms);
    delay_ms = std::min(delay_ms, m_exporter.tick(now_ms));
    delay_ms = std::min(delay_ms, m_records.tick(now_ms));
    return static_cast<int>(delay_ms);
}

// Workers capture and forget idle flows by themselves. The pause waits for those that are at it: one that
// hangs shows in the calling thread, which is supervised.
uint64_t Engine::tick_live(uint64_t now_ms, std::string& problem) {
    const Workers::Pause pause = this->pause();
    if (m_path && !m_workers) m_interfaces.own_lane().poll(m_path->data.at(0));
    // Captured frames cause far more ticks than these jobs need.
    if (m_path && now_ms >= m_path_due_ms) {
        m_path->lists.tick(now_ms);
        m_path_due_ms =
            now_ms + (m_workers ? LOOK_AFTER_MS : static_cast<uint64_t>(m_path->data.at(0).tick()));
    }
    if (now_ms >= m_look_after_due_ms) look_after(now_ms);
    uint64_t delay_ms = m_look_after_due_ms - now_ms;
    if (m_path) delay_ms = std::min(delay_ms, m_path_due_ms - now_ms);
    problem = m_interfaces.take_problem();
    if (problem.empty() && m_workers) problem = m_workers->take_problem();
    return std::min(delay_ms, m_collectors.tick(now_ms, source(), [this](std::string sample) {
        m_exporter.add(std::move(sample));
    }));
}

void Engine::look_after(uint64_t now_ms) {
    m_look_after_due_ms = now_ms + LOOK_AFTER_MS;
    m_interfaces.refresh();
    m_recent_drops.update(now_ms, drops());
    m_recent_evictions.update(now_ms, evictions());
    if (m_path) watch_flow_table();
}

void Engine::watch_flow_table() {
    const Shards& live = path();
    const uint64_t refused = live.errors(api::PKT_MAX_FLOWS_REACHED);
    const bool refusing = refused > std::exchange(m_refused, refused);
    const bool evicting = live.evicted() > std::exchange(m_evicted, live.evicted());
    const fullness_e now = refusing ? REFUSING : evicting ? EVICTING : ROOM;
    if (now > m_told) {
        m_told = now;
        raise_notice("flow_table.full", notif::SEV_WARN,
                     "all " + std::to_string(live.max_flows()) + " flows are in use, " +
                         (refusing ? "new ones are refused" : "the longest idle make room"));
    } else if (now == ROOM && flow_table_use(&live) < ROOM_AGAIN) {
        m_told = ROOM;
    }
}

uint64_t Engine::drops() const {
    uint64_t refused = m_path ? path().errors(api::PKT_MAX_FLOWS_REACHED) : 0;
    return m_past_refused + refused + m_interfaces.drops();
}

uint64_t Engine::evictions() const {
    return m_past_evicted + (m_path ? path().evicted() : 0);
}

void Engine::push(const std::string& dpaddr, std::vector<api::pkt_>& pkts, bool extended) {
    check_address(dpaddr);
    Shards& live = path();
    if (!CapturePaths::is_capture(dpaddr)) {
        const Workers::Pause pause = this->pause();
        live.push(pkts, extended);
        m_records.flush();
        return;
    }
    NamedPath* known = m_captures.find(dpaddr);
    NamedPath& capture = known ? *known : m_captures.open(dpaddr, ++m_instances);
    if (capture.data.count() > 1) return m_workers->deal(capture.data, pkts);
    capture.data.push(pkts, extended);
}

// A reset arrives before the first push to a capture's data path, when there is nothing to reset yet.
std::string Engine::coffee(const std::string& dpaddr, const std::string& func,
                           const std::vector<uint32_t>& args) {
    check_address(dpaddr);
    const Workers::Pause pause = this->pause();
    if (!CapturePaths::is_capture(dpaddr)) return run_coffee(live_path(), func, args);
    NamedPath* capture = m_captures.find(dpaddr);
    return run_coffee(capture ? &capture->data : nullptr, func, args);
}

void Engine::attach(const std::string& ifname) {
    path();
    const Workers::Pause pause = this->pause();
    m_interfaces.attach(ifname);
}

void Engine::detach(const std::string& ifname) {
    path();
    const Workers::Pause pause = this->pause();
    m_interfaces.detach(ifname);
}

std::vector<std::string> Engine::attached() const {
    const Workers::Pause pause = this->pause();
    std::vector<std::string> out;
    for (const Interfaces::Counters& interface : m_interfaces.attached())
        out.push_back(interface.name);
    return out;
}

void Engine::enable_collector(const std::string& component) {
    if (component == Records::COLLECTOR) m_records.open();
    m_collectors.enable(component, m_clock());
    watch_flows();
}

void Engine::disable_collector(const std::string& component) {
    m_collectors.disable(component);
    if (component == Records::COLLECTOR) m_records.run_dry();
    watch_flows();
}

void Engine::watch_flows() {
    const Workers::Pause pause = this->pause();
    if (m_path) m_path->data.watch(m_collectors.is_enabled(Records::COLLECTOR) ? &m_records : nullptr);
}

void Engine::set_exporter(const api::ExporterConfig& config) {
    m_exporter.configure(config);
    m_records.send_to(config);
}

void Engine::set_collector_interval(const std::string& component, uint64_t interval_ms) {
    m_collectors.set_interval(component, interval_ms, m_clock());
    if (component == Records::COLLECTOR) m_records.set_interval(interval_ms);
}

Json::Value Engine::sample(const std::string& component) {
    const Workers::Pause pause = this->pause();
    m_interfaces.refresh();
    return m_collectors.sample(component, source());
}

Json::Value Engine::collectors() const {
    Json::Value out(Json::objectValue);
    out["collectables"] = m_collectors.list();
    out["exporter"] = m_exporter.describe();
    return out;
}

Json::Value Engine::health(bool verbose) {
    const Workers::Pause pause = this->pause();
    m_recent_drops.update(m_clock(), drops());
    m_recent_evictions.update(m_clock(), evictions());
    Health::Values values;
    values[Health::FLOW_TABLE] = flow_table_use(live_path());
    values[Health::MEMORY] = resident_memory();
    values[Health::DROPS] = m_recent_drops.sum();
    values[Health::EVICTIONS] = m_recent_evictions.sum();
    values[Health::EXPORT_FAILURES] = std::max(m_exporter.failures_in_a_row(), m_records.failures_in_a_row());
    return m_health.report(values, verbose);
}

void Engine::check_address(const std::string& dpaddr) {
    if (dpaddr.empty() || dpaddr == data_path_name() || CapturePaths::is_capture(dpaddr)) return;
    throw Error("no data path " + quoted(dpaddr) + ", expecting '" + data_path_name() +
                "', 'capture:NAME' or nothing");
}

const std::string& Engine::data_path_name() {
    static const std::string name = "dp0";
    return name;
}

Json::Value Engine::version() {
    Json::Value out(Json::objectValue);
    out["name"] = "brumecpd engine";
    out["version"] = ENGINE_VERSION;
    out["ndpi"] = ndpi_revision();
    return out;
}

}  // namespace corvo::engine
