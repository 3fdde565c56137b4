#include "engine.h"

#include <algorithm>

#include "coffee.h"
#include "engine_error.h"
#include "notice.h"

namespace corvo::engine {
namespace {

constexpr const char* ENGINE_VERSION = "1.1";
constexpr uint64_t LOOK_AFTER_MS = 1000;
/** A table that was full counts as full until so much of it is free again, percent. */
constexpr uint64_t ROOM_AGAIN = 90;

}  // namespace

// The flow table is this process's own memory: the configured shared memory isn't needed. Nor are the
// command table and the address.
Engine::Engine(const api::InitConfig&, ClockFn clock) : m_clock(clock) {}

// All packets come from the one calling thread, so one worker does the work of any number.
void Engine::activate(const api::ActivateConfig& config) {
    if (m_path) throw Error("the data path is already active");
    m_path = std::make_unique<DataPath>(config.max_flows, m_clock);
    m_path_due_ms = 0;
}

void Engine::deactivate() {
    path();
    m_interfaces.detach_all();
    m_past_refused += m_path->errors(api::PKT_MAX_FLOWS_REACHED);
    m_path.reset();
    m_refused = 0;
    m_full = false;
}

DataPath& Engine::path() const {
    if (!m_path) throw Error("the data path isn't active");
    return *m_path;
}

int Engine::tick(std::string& problem) {
    uint64_t now_ms = m_clock();
    if (m_path) m_interfaces.poll(*m_path);
    // Frames bring many more ticks than these two need.
    if (m_path && now_ms >= m_path_due_ms) m_path_due_ms = now_ms + static_cast<uint64_t>(m_path->tick());
    if (now_ms >= m_look_after_due_ms) look_after(now_ms);
    uint64_t delay_ms = m_look_after_due_ms - now_ms;
    if (m_path) delay_ms = std::min(delay_ms, m_path_due_ms - now_ms);
    delay_ms = std::min(delay_ms, m_collectors.tick(now_ms, source(), [this](std::string sample) {
        m_exporter.add(std::move(sample));
    }));
    delay_ms = std::min(delay_ms, m_exporter.tick(now_ms));
    problem = m_interfaces.take_problem();
    return static_cast<int>(delay_ms);
}

void Engine::look_after(uint64_t now_ms) {
    m_look_after_due_ms = now_ms + LOOK_AFTER_MS;
    m_interfaces.refresh();
    m_recent_drops.update(now_ms, drops());
    if (m_path) watch_flow_table();
}

void Engine::watch_flow_table() {
    uint64_t refused = m_path->errors(api::PKT_MAX_FLOWS_REACHED);
    bool refusing = refused > m_refused;
    m_refused = refused;
    if (refusing && !m_full) {
        m_full = true;
        raise_notice("flow_table.full", notif::SEV_WARN,
                     "all " + std::to_string(m_path->table().max_flows()) + " flows are in use");
    } else if (!refusing && flow_table_use(m_path.get()) < ROOM_AGAIN) {
        m_full = false;
    }
}

uint64_t Engine::drops() const {
    uint64_t refused = m_path ? m_path->errors(api::PKT_MAX_FLOWS_REACHED) : 0;
    return m_past_refused + refused + m_interfaces.drops();
}

void Engine::push(const std::string& dpaddr, std::vector<api::pkt_>& pkts, bool extended) {
    check_address(dpaddr);
    path().push(pkts, extended);
}

std::string Engine::coffee(const std::string& dpaddr, const std::string& func,
                           const std::vector<uint32_t>& args) {
    check_address(dpaddr);
    return run_coffee(m_path.get(), func, args);
}

void Engine::attach(const std::string& ifname) {
    path();
    m_interfaces.attach(ifname);
}

void Engine::detach(const std::string& ifname) {
    path();
    m_interfaces.detach(ifname);
}

std::vector<std::string> Engine::attached() const {
    std::vector<std::string> out;
    for (const auto& socket : m_interfaces.attached())
        out.push_back(socket->name());
    return out;
}

void Engine::set_collector_interval(const std::string& component, uint64_t interval_ms) {
    m_collectors.set_interval(component, interval_ms, m_clock());
}

Json::Value Engine::sample(const std::string& component) {
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
    m_recent_drops.update(m_clock(), drops());
    Health::Values values;
    values[Health::FLOW_TABLE] = flow_table_use(m_path.get());
    values[Health::MEMORY] = resident_memory();
    values[Health::DROPS] = m_recent_drops.sum();
    values[Health::EXPORT_FAILURES] = m_exporter.failures_in_a_row();
    return m_health.report(values, verbose);
}

void Engine::check_address(const std::string& dpaddr) {
    if (dpaddr.empty() || dpaddr == data_path_name()) return;
    throw Error("no data path '" + dpaddr + "', expecting '" + data_path_name() + "' or nothing");
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
