#include "samples.h"

namespace corvo::engine {
namespace {

Json::Value number(uint64_t value) {
    return Json::UInt64{value};
}

constexpr struct {
    api::pkt_error_e error;
    const char* name;
} ERRORS[] = {
    {api::PKT_MAX_FLOWS_REACHED, "table_full"},
    {api::PKT_NO_MEM, "no_memory"},
    {api::PKT_NON_IP, "not_ip"},
    {api::PKT_NON_FFRAG, "ipv4_fragment"},
    {api::PKT_TRIMMED_L3, "cut_short"},
    {api::PKT_IPV6_FRAG, "ipv6_fragment"},
};

}  // namespace

Json::Value traffic_json(const Traffic& traffic) {
    Json::Value out(Json::objectValue);
    out["packets"] = number(traffic.packets);
    out["bytes"] = number(traffic.bytes);
    out["flows"] = number(traffic.flows);
    return out;
}

Json::Value errors_json(const Shards* path) {
    Json::Value out(Json::objectValue);
    for (const auto& [error, name] : ERRORS)
        out[name] = number(path ? path->errors(error) : 0);
    return out;
}

uint64_t flow_table_use(const Shards* path) {
    return path ? uint64_t{path->flow_count()} * 100 / path->max_flows() : 0;
}

Json::Value flows_sample(const SampleSource& source) {
    const Shards* path = source.path;
    Json::Value out(Json::objectValue);
    out["use"] = number(flow_table_use(path));
    out["active"] = path ? path->flow_count() : 0;
    out["max"] = path ? path->max_flows() : 0;
    out["created"] = number(path ? path->created() : 0);
    out["aged"] = number(path ? path->aged() : 0);
    out["evicted"] = number(path ? path->evicted() : 0);
    out["unclassified"] = number(path ? path->unclassified().flows : 0);
    out["errors"] = errors_json(path);
    return out;
}

Json::Value protocols_sample(const SampleSource& source) {
    Json::Value out(Json::objectValue);
    out["protocols"] = out["open"] = Json::objectValue;
    if (!source.path) return out;
    for (const auto& [name, counts] : source.path->counts_by_protocol()) {
        if (counts.settled.packets > 0) out["protocols"][name] = traffic_json(counts.settled);
        if (counts.open.packets > 0) out["open"][name] = traffic_json(counts.open);
    }
    return out;
}

Json::Value interfaces_sample(const SampleSource& source) {
    Json::Value out(Json::objectValue);
    Json::Value& list = out["interfaces"] = Json::arrayValue;
    for (const Interfaces::Counters& interface : source.interfaces.attached()) {
        Json::Value one(Json::objectValue);
        one["name"] = interface.name;
        one["packets"] = number(interface.packets);
        one["bytes"] = number(interface.bytes);
        one["drops"] = number(interface.drops);
        one["up"] = interface.up;
        one["downs"] = number(interface.downs);
        list.append(std::move(one));
    }
    Json::Value& pushed = out["pushed"] = Json::objectValue;
    pushed["packets"] = number(source.path ? source.path->pushed().packets : 0);
    pushed["bytes"] = number(source.path ? source.path->pushed().bytes : 0);
    return out;
}

Json::Value records_sample(const SampleSource& source) {
    Json::Value out(Json::objectValue);
    source.records.describe(out);
    return out;
}

}  // namespace corvo::engine
