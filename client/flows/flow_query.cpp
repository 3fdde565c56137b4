#include "client/flows/flow_query.h"

#include "client/text/flow_text.h"
#include "client/text/json_access.h"

namespace brumectl::flows {

namespace {

double number_of(const Json::Value& flow, const char* member) {
    const Json::Value& value = member_of(flow, member);
    return value.isNumeric() ? value.asDouble() : 0;
}

SortKey most_of(const Json::Value& flow, const char* member) {
    return {-number_of(flow, member), {}};
}

constexpr Order ORDERS[] = {
    {"bytes", "bytes", [](const Json::Value& flow) { return most_of(flow, "bytes"); }},
    {"packets", "packets", [](const Json::Value& flow) { return most_of(flow, "packets"); }},
    {"age", "first",
     [](const Json::Value& flow) {
         return SortKey{number_of(flow, "first_seen"), {}};
     }},
    {"idle", nullptr,
     [](const Json::Value& flow) {
         return SortKey{number_of(flow, "last_seen"), {}};
     }},
    {"protocol", nullptr,
     [](const Json::Value& flow) {
         return SortKey{0, string_of(member_of(flow, "protocol"))};
     }},
    {"client", nullptr,
     [](const Json::Value& flow) {
         return SortKey{0, flow_text::endpoint(flow, "client")};
     }},
    {"server", nullptr,
     [](const Json::Value& flow) {
         return SortKey{0, flow_text::endpoint(flow, "server")};
     }},
    {"name", nullptr,
     [](const Json::Value& flow) {
         const std::string name = flow_text::server_name(flow);
         return SortKey{name.empty() ? 1.0 : 0.0, name};  // those without a name come last
     }},
};

}  // namespace

std::span<const Order> orders() {
    return ORDERS;
}

Json::Value FlowQuery::params() const {
    Json::Value params;
    params["dpaddr"] = "dp0";
    params["sort"] = order->engines != nullptr ? order->engines : orders().front().engines;
    params["guess"] = guess;
    if (!protocol.empty()) params["protocol"] = protocol;
    if (host.is_address()) params["address"] = host.text();
    if (port) params["port"] = *port;
    if (ns_id) params["ns_id"] = *ns_id;
    return params;
}

bool FlowQuery::matches(const Json::Value& flow, double now_sec) const {
    const uint64_t bytes = count_of(member_of(flow, "bytes"));
    if (bytes < min_bytes || bytes > max_bytes || !host.matches(flow)) return false;
    if (!min_age_sec && !max_age_sec) return true;
    const std::optional<double> age = flow_text::age_sec(flow, now_sec);
    return age && *age >= min_age_sec.value_or(0) && *age <= max_age_sec.value_or(*age);
}

}  // namespace brumectl::flows
