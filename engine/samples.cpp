#include "samples.h"

namespace corvo::engine {
namespace {

Json::Value number(uint64_t value) {
    return Json::UInt64{value};
}

Json::Value json_of(const Traffic& traffic) {
    Json::Value out(Json::objectValue);
    out["packets"] = number(traffic.packets);
    out["bytes"] = number(traffic.bytes);
    out["flows"] = number(traffic.flows);
    return out;
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

uint64_t flow_table_use(const DataPath* path) {
    return path ? uint64_t{path->table().size()} * 100 / path->table().max_flows() : 0;
}

Json::Value flows_sample(const SampleSource& source) {
    const DataPath* path = source.path;
    Json::Value out(Json::objectValue);
    out["use"] = number(flow_table_use(path));
    out["active"] = path ? path->table().size() : 0;
    out["max"] = path ? path->table().max_flows() : 0;
    out["created"] = number(path ? path->table().created() : 0);
    out["aged"] = number(path ? path->table().aged() : 0);
    const Counts unclassified = path ? path->unclassified() : Counts();
    out["unclassified"] = number(unclassified.settled.flows + unclassified.open.flows);
    Json::Value& errors = out["errors"] = Json::objectValue;
    for (const auto& [error, name] : ERRORS)
        errors[name] = number(path ? path->errors(error) : 0);
    return out;
}

Json::Value protocols_sample(const SampleSource& source) {
    Json::Value out(Json::objectValue);
    out["protocols"] = out["open"] = Json::objectValue;
    if (!source.path) return out;
    auto counts = source.path->counts_by_protocol();
    counts["unclassified"] = source.path->unclassified();
    for (const auto& [name, count] : counts) {
        if (count.settled.packets > 0) out["protocols"][name] = json_of(count.settled);
        if (count.open.packets > 0) out["open"][name] = json_of(count.open);
    }
    return out;
}

Json::Value interfaces_sample(const SampleSource& source) {
    Json::Value out(Json::objectValue);
    Json::Value& list = out["interfaces"] = Json::arrayValue;
    for (const auto& socket : source.interfaces.attached()) {
        Json::Value one(Json::objectValue);
        one["name"] = socket->name();
        one["packets"] = number(socket->packets());
        one["bytes"] = number(socket->bytes());
        one["drops"] = number(socket->drops());
        one["up"] = socket->up();
        one["downs"] = number(socket->downs());
        list.append(std::move(one));
    }
    Json::Value& pushed = out["pushed"] = Json::objectValue;
    pushed["packets"] = number(source.path ? source.path->pushed().packets : 0);
    pushed["bytes"] = number(source.path ? source.path->pushed().bytes : 0);
    return out;
}

}  // namespace corvo::engine
