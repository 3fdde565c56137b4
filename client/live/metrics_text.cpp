#include "client/live/metrics_text.h"

#include <charconv>

#include "client/text/engine_state.h"
#include "client/text/json_access.h"
#include "client/text/terminal.h"

namespace brumectl {

namespace {

constexpr const char* HEALTH_STATES[] = {"ok", "warn", "bad"};

/** A metric whose value is a number somewhere in a result. */
struct Member {
    const char* name;
    const char* type;
    const char* help;
    const char* path[4];
    uint64_t unit = 1;
};

constexpr Member STATUS[] = {
    {"brumecpd_uptime_seconds", "gauge", "Time since the server's start.", {"uptime"}},
    {"brumecpd_process_resident_memory_bytes",
     "gauge",
     "Physical memory of the daemon, in steps of a MiB.",
     {"mem", "process", "phy_mem", "current"},
     MIB},
    {"brumecpd_process_virtual_memory_bytes",
     "gauge",
     "Virtual memory of the daemon, in steps of a MiB.",
     {"mem", "process", "virt_mem", "current"},
     MIB},
    {"brumecpd_machine_memory_bytes", "gauge", "Memory of the machine.", {"mem", "total_mem"}, MIB},
    {"brumecpd_machine_memory_free_bytes",
     "gauge",
     "Unused memory of the machine.",
     {"mem", "free_mem"},
     MIB},
};

constexpr Member FLOWS[] = {
    {"brumecpd_flows_active", "gauge", "Flows in the table.", {"active"}},
    {"brumecpd_flows_max", "gauge", "Flows that the table has room for.", {"max"}},
    {"brumecpd_flows_unclassified",
     "gauge",
     "Flows without a class, so far or to their end.",
     {"unclassified"}},
    {"brumecpd_flows_created_total", "counter", "Flows that were ever added.", {"created"}},
    {"brumecpd_flows_aged_total", "counter", "Flows that were forgotten because they were idle.", {"aged"}},
};

constexpr Member EXPORTER[] = {
    {"brumecpd_exporter_queued_samples", "gauge", "Samples that wait for the exporter.", {"queued"}},
    {"brumecpd_exporter_sent_total", "counter", "Samples that were exported.", {"sent"}},
    {"brumecpd_exporter_failures_total", "counter", "Failed attempts to export.", {"failed"}},
    {"brumecpd_exporter_dropped_total", "counter", "Samples that were given up.", {"dropped"}},
};

/** Metrics for each row of a table. */
constexpr Member PROTOCOLS[] = {
    {"brumecpd_protocol_packets_total",
     "counter",
     "Packets by protocol. A flow's count once its class is final, or it has ended.",
     {"packets"}},
    {"brumecpd_protocol_bytes_total", "counter", "Bytes of whole frames by protocol.", {"bytes"}},
    {"brumecpd_protocol_flows_total", "counter", "Flows by protocol.", {"flows"}},
};

constexpr Member OPEN[] = {
    {"brumecpd_protocol_open_packets",
     "gauge",
     "Packets of flows whose class may still change, by what it is so far.",
     {"packets"}},
    {"brumecpd_protocol_open_bytes", "gauge", "Bytes of such flows.", {"bytes"}},
    {"brumecpd_protocol_open_flows", "gauge", "Such flows.", {"flows"}},
};

constexpr Member INTERFACES[] = {
    {"brumecpd_interface_packets_total", "counter", "Frames captured from an interface.", {"packets"}},
    {"brumecpd_interface_bytes_total", "counter", "Bytes captured from an interface.", {"bytes"}},
    {"brumecpd_interface_drops_total", "counter", "Frames that the kernel had no room for.", {"drops"}},
    {"brumecpd_interface_downs_total", "counter", "How often an interface went down.", {"downs"}},
};

constexpr Member PUSHED[] = {
    {"brumecpd_pushed_packets_total", "counter", "Packets pushed by requests.", {"pushed", "packets"}},
    {"brumecpd_pushed_bytes_total", "counter", "Bytes pushed by requests.", {"pushed", "bytes"}},
};

const Json::Value& find(const Json::Value& object, const Member& metric) {
    const Json::Value* at = &object;
    for (const char* name : metric.path)
        if (name != nullptr) at = &member_of(*at, name);
    return *at;
}

/** Absent members aren't written: an absent number isn't 0. */
template <size_t N>
void write_members(MetricsWriter& out, const Json::Value& object, const Member (&metrics)[N]) {
    for (const Member& metric : metrics) {
        const Json::Value& value = find(object, metric);
        out.family(metric.name, metric.type, metric.help);
        if (value.isNumeric()) out.sample(count_of(value) * metric.unit);
    }
}

std::string label_text(const std::string& value) {
    std::string out;
    for (char c : harmless(value)) {
        if (c == '\\' || c == '"') out += '\\';
        out += c;
    }
    return out;
}

void write_status(MetricsWriter& out, const Json::Value& status) {
    write_members(out, status, STATUS);
    out.family("brumecpd_engine_state", "gauge", "1 for the state that the engine is in.");
    for (const std::string& state : state_words())
        out.sample(uint64_t{string_of(member_of(status, "state")) == state}, {{"state", state}});
    out.family("brumecpd_attached_interfaces", "gauge", "Interfaces that the engine is attached to.");
    out.sample(uint64_t{member_of(status, "attached").isArray() ? member_of(status, "attached").size() : 0});
    out.family("brumecpd_info", "gauge", "Always 1; says what runs.");
    out.sample(uint64_t{1}, {{"mode", string_of(member_of(status, "mode"))},
                             {"arch", string_of(member_of(status, "arch"))},
                             {"kernel", string_of(member_of(status, "kernel"))},
                             {"engine", string_of(member_of(status, {"version", "name"}))},
                             {"engine_version", string_of(member_of(status, {"version", "version"}))}});
}

void write_state(MetricsWriter& out, const Json::Value& state, MetricsWriter::Labels labels) {
    for (uint64_t rank = 0; rank < std::size(HEALTH_STATES); ++rank)
        if (string_of(state) == HEALTH_STATES[rank]) out.sample(rank, labels);
}

void write_health(MetricsWriter& out, const Json::Value& health) {
    out.family("brumecpd_health", "gauge", "The worst of the engine's health: 0 ok, 1 warn, 2 bad.");
    write_state(out, member_of(health, "state"), {});
    const Json::Value& items = member_of(health, "items");
    if (!items.isObject()) return;
    out.family("brumecpd_health_item", "gauge", "Health of one thing: 0 ok, 1 warn, 2 bad.");
    for (auto item = items.begin(); item != items.end(); ++item)
        write_state(out, member_of(*item, "state"), {{"item", item.name()}});
    auto write_values = [&](const char* wanted_unit, double scale) {
        for (auto item = items.begin(); item != items.end(); ++item) {
            std::string unit = string_of(member_of(*item, "unit"));
            bool other = *wanted_unit == '\0' && unit != "percent" && unit != "bytes";
            if (member_of(*item, "value").isNumeric() && (other || unit == wanted_unit))
                out.sample(member_of(*item, "value").asDouble() * scale, {{"item", item.name()}});
        }
    };
    out.family("brumecpd_health_ratio", "gauge", "What an item's health is judged by, from 0 to 1.");
    write_values("percent", 0.01);
    out.family("brumecpd_health_bytes", "gauge", "What an item's health is judged by, in bytes.");
    write_values("bytes", 1);
    out.family("brumecpd_health_value", "gauge", "What an item's health is judged by, a number.");
    write_values("", 1);
}

void write_flows(MetricsWriter& out, const Json::Value& flows) {
    write_members(out, flows, FLOWS);
    const Json::Value& errors = member_of(flows, "errors");
    out.family("brumecpd_packet_errors_total", "counter", "Packets that weren't classified, by cause.");
    if (errors.isObject())
        for (auto error = errors.begin(); error != errors.end(); ++error)
            out.sample(count_of(*error), {{"cause", error.name()}});
}

template <size_t N>
void write_protocols(MetricsWriter& out, const Json::Value& protocols, const Member (&metrics)[N]) {
    if (!protocols.isObject()) return;
    for (const Member& metric : metrics) {
        out.family(metric.name, metric.type, metric.help);
        for (auto row = protocols.begin(); row != protocols.end(); ++row)
            out.sample(count_of(find(*row, metric)), {{"protocol", row.name()}});
    }
}

void write_interfaces(MetricsWriter& out, const Json::Value& sample) {
    write_members(out, sample, PUSHED);
    const Json::Value& interfaces = member_of(sample, "interfaces");
    if (!interfaces.isArray()) return;
    for (const Member& metric : INTERFACES) {
        out.family(metric.name, metric.type, metric.help);
        for (const Json::Value& row : interfaces)
            out.sample(count_of(find(row, metric)), {{"interface", string_of(member_of(row, "name"))}});
    }
    out.family("brumecpd_interface_up", "gauge", "1 while an interface can be captured from.");
    for (const Json::Value& row : interfaces)
        out.sample(uint64_t{member_of(row, "up") == true},
                   {{"interface", string_of(member_of(row, "name"))}});
}

void write_collectors(MetricsWriter& out, const Json::Value& collectors) {
    out.family("brumecpd_collector_enabled", "gauge", "1 while a collector gives samples to the exporter.");
    const Json::Value& collectables = member_of(collectors, "collectables");
    if (collectables.isArray())
        for (const Json::Value& row : collectables)
            if (row.isObject())
                out.sample(uint64_t{row["enabled"] == true}, {{"collector", string_of(row["name"])}});
    write_members(out, member_of(collectors, "exporter"), EXPORTER);
}

void write_alerts(MetricsWriter& out, const Json::Value& alerts) {
    if (!alerts.isArray()) return;
    auto write = [&](const char* number) {
        for (const Json::Value& alert : alerts)
            out.sample(count_of(member_of(alert, number)),
                       {{"feature", string_of(member_of(alert, "feature"))},
                        {"name", string_of(member_of(alert, "name"))},
                        {"severity", string_of(member_of(alert, "sev"))}});
    };
    out.family("brumecpd_alerts", "gauge", "Warnings since they were last cleared.");
    write("count");
    out.family("brumecpd_alert_last_timestamp_seconds", "gauge", "When a warning was last raised.");
    write("last_ts");
}

void write_up(MetricsWriter& out, bool up) {
    out.family("brumecpd_up", "gauge", "1 if the daemon answers.");
    out.sample(uint64_t{up});
}

}  // namespace

void MetricsWriter::family(const char* name, const char* type, const char* help) {
    m_name = name;
    m_type = type;
    m_help = help;
    m_series.clear();
}

void MetricsWriter::sample(uint64_t value, Labels labels) {
    line(labels, std::to_string(value));
}

void MetricsWriter::sample(double value, Labels labels) {
    char buf[32];
    auto [end, err] = std::to_chars(buf, buf + sizeof(buf), value);
    line(labels, std::string(buf, end));
}

void MetricsWriter::line(Labels labels, const std::string& value) {
    std::string series;
    for (const auto& [name, text] : labels)
        series += (series.empty() ? "{" : ",") + std::string(name) + "=\"" + label_text(text) + "\"";
    if (!series.empty()) series += "}";
    if (m_series.empty())
        m_text += std::string("# HELP ") + m_name + " " + m_help + "\n# TYPE " + m_name + " " + m_type + "\n";
    if (m_series.insert(series).second) m_text += m_name + series + " " + value + "\n";
}

std::string metrics_text(const LiveSample& sample) {
    MetricsWriter out;
    write_up(out, true);
    write_status(out, sample.status);
    write_health(out, sample.health.value);
    write_flows(out, sample.flows.value);
    write_protocols(out, member_of(sample.protocols.value, "protocols"), PROTOCOLS);
    write_protocols(out, member_of(sample.protocols.value, "open"), OPEN);
    write_interfaces(out, sample.interfaces.value);
    write_collectors(out, sample.collectors.value);
    write_alerts(out, sample.alerts.value);
    return out.text();
}

std::string metrics_text_down(const std::string& why) {
    MetricsWriter out;
    write_up(out, false);
    return "# " + harmless(why) + "\n" + out.text();
}

}  // namespace brumectl
