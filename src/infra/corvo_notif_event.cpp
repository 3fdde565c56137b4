#include "infra/corvo_notif_event.h"

#include "utils/clock.h"

namespace corvo::notif {
namespace {

constexpr const char* SEVERITY_TEXTS[] = {nullptr, "info", "warn", "severe"};

bool matches_word(const std::string& wanted, const std::string& actual) {
    return wanted == "*" || wanted == actual;
}

}  // namespace

std::atomic<uint64_t> Event::g_id{0};

const char* severity_to_str(Severity severity) {
    return severity >= SEV_INFO && severity <= SEV_SEVERE ? SEVERITY_TEXTS[severity] : "unknown";
}

Event::Event(const std::string& feature_, const std::string& name_, Severity severity_,
             const std::string& desc_)
    : id(++g_id), feature(feature_), name(name_), severity(severity_), desc(desc_), ts(realtime_sec()) {}

Event::~Event() = default;

void Event::to_json(Json::Value& out) const {
    out["desc"] = desc;
    out["feature"] = feature;
    out["id"] = Json::UInt64{id};
    out["name"] = name;
    out["sev"] = severity_to_str(severity);
    out["ts"] = static_cast<Json::UInt64>(ts);
}

bool Filter::matches(const Event& event) const {
    return event.severity >= severity && matches_word(feature, event.feature) &&
           matches_word(name, event.name);
}

}  // namespace corvo::notif
