#include "client/live/traffic.h"

#include <algorithm>
#include <map>
#include <tuple>

#include "client/text/json_access.h"

namespace brumectl {

namespace {

Traffic read_row(const std::string& name, const Json::Value& counts) {
    Traffic row;
    row.name = name;
    row.packets = count_of(member_of(counts, "packets"));
    row.bytes = count_of(member_of(counts, "bytes"));
    row.flows = count_of(member_of(counts, "flows"));
    row.drops = count_of(member_of(counts, "drops"));
    row.downs = count_of(member_of(counts, "downs"));
    row.up = member_of(counts, "up") != false;
    return row;
}

std::vector<Traffic> read_protocols(const LiveSample& sample) {
    std::map<std::string, Traffic> sums;
    for (const char* part : {"protocols", "open"}) {
        const Json::Value& protocols = member_of(sample.protocols.value, part);
        if (!protocols.isObject()) continue;
        for (auto row = protocols.begin(); row != protocols.end(); ++row) {
            const Traffic counts = read_row(row.name(), *row);
            Traffic& sum = sums.emplace(row.name(), Traffic{.name = row.name()}).first->second;
            sum.packets += counts.packets;
            sum.bytes += counts.bytes;
            sum.flows += counts.flows;
        }
    }
    std::vector<Traffic> rows;
    rows.reserve(sums.size());
    for (const auto& [name, sum] : sums)
        rows.push_back(sum);
    return rows;
}

std::vector<Traffic> read_interfaces(const LiveSample& sample) {
    std::vector<Traffic> rows;
    const Json::Value& interfaces = member_of(sample.interfaces.value, "interfaces");
    if (interfaces.isArray())
        for (const Json::Value& row : interfaces)
            rows.push_back(read_row(string_of(member_of(row, "name")), row));
    const Json::Value& pushed = member_of(sample.interfaces.value, "pushed");
    if (pushed.isObject()) rows.push_back(read_row("pushed", pushed));
    return rows;
}

/** A counter that decreased has been reset, so there is no rate. */
double rate(uint64_t now, uint64_t before, double seconds) {
    return now > before ? static_cast<double>(now - before) / seconds : 0;
}

void add_rates(std::vector<Traffic>& rows, const std::vector<Traffic>& earlier, double seconds) {
    std::map<std::string, const Traffic*> known;
    for (const Traffic& row : earlier)
        known[row.name] = &row;
    static const Traffic nothing;
    for (Traffic& row : rows) {
        auto found = known.find(row.name);
        const Traffic& before = found == known.end() ? nothing : *found->second;
        row.has_rate = true;
        row.packet_rate = rate(row.packets, before.packets, seconds);
        row.byte_rate = rate(row.bytes, before.bytes, seconds);
    }
}

double seconds_between(const LiveSample& now, const LiveSample& before) {
    return static_cast<double>(now.taken_ms - before.taken_ms) / 1000;
}

/** Rows with equal values stay in order of their names. */
constexpr TrafficOrder ORDERS[] = {
    {'r', "bytes a second",
     [](const Traffic& a, const Traffic& b) {
         return std::tie(b.byte_rate, b.bytes) < std::tie(a.byte_rate, a.bytes);
     }},
    {'s', "packets a second",
     [](const Traffic& a, const Traffic& b) {
         return std::tie(b.packet_rate, b.packets) < std::tie(a.packet_rate, a.packets);
     }},
    {'b', "bytes", [](const Traffic& a, const Traffic& b) { return b.bytes < a.bytes; }},
    {'p', "packets", [](const Traffic& a, const Traffic& b) { return b.packets < a.packets; }},
    {'f', "flows", [](const Traffic& a, const Traffic& b) { return b.flows < a.flows; }},
    {'n', "name", [](const Traffic& a, const Traffic& b) { return a.name < b.name; }},
};

}  // namespace

bool is_comparable(const LiveSample& now, const LiveSample& before) {
    return now.taken_ms > before.taken_ms && member_of(now.status, "pid") == member_of(before.status, "pid");
}

std::span<const TrafficOrder> traffic_orders() {
    return ORDERS;
}

std::vector<Traffic> protocol_traffic(const LiveSample& now, const LiveSample* before,
                                      const TrafficOrder& order) {
    std::vector<Traffic> rows = read_protocols(now);
    if (before != nullptr && is_comparable(now, *before) && before->protocols.error.empty())
        add_rates(rows, read_protocols(*before), seconds_between(now, *before));
    std::stable_sort(rows.begin(), rows.end(), order.comes_first);
    return rows;
}

std::vector<Traffic> interface_traffic(const LiveSample& now, const LiveSample* before) {
    std::vector<Traffic> rows = read_interfaces(now);
    if (before != nullptr && is_comparable(now, *before) && before->interfaces.error.empty())
        add_rates(rows, read_interfaces(*before), seconds_between(now, *before));
    return rows;
}

}  // namespace brumectl
