#include "collectors.h"

#include <json/writer.h>

#include <algorithm>
#include <ctime>
#include <utility>

#include "engine_error.h"

namespace corvo::engine {
namespace {

constexpr uint64_t IDLE_MS = 1000;

std::string one_line(const Json::Value& value) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return Json::writeString(builder, value);
}

}  // namespace

Collectors::Collectors()
    : m_collectors{
          {"flows", flows_sample},
          {"protocols", protocols_sample},
          {"interfaces", interfaces_sample},
          {Records::COLLECTOR, records_sample, false},
      } {}

const Collectors::Collector& Collectors::find(const std::string& component) const {
    std::string known;
    for (const Collector& collector : m_collectors) {
        if (component == collector.name) return collector;
        known += known.empty() ? "" : ", ";
        known += quoted(collector.name);
    }
    throw Error("there is no collector " + quoted(component) + ", expecting one of " + known);
}

Collectors::Collector& Collectors::find(const std::string& component) {
    return const_cast<Collector&>(std::as_const(*this).find(component));
}

void Collectors::enable(const std::string& component, uint64_t now_ms) {
    Collector& collector = find(component);
    if (collector.enabled) return;
    collector.enabled = true;
    collector.due_ms = now_ms + collector.interval_ms;
}

void Collectors::disable(const std::string& component) {
    find(component).enabled = false;
}

void Collectors::set_interval(const std::string& component, uint64_t interval_ms, uint64_t now_ms) {
    Collector& collector = find(component);
    if (interval_ms < MIN_INTERVAL_MS || interval_ms > MAX_INTERVAL_MS) {
        throw Error("the interval is " + std::to_string(interval_ms) + " ms, expecting " +
                    std::to_string(MIN_INTERVAL_MS) + " to " + std::to_string(MAX_INTERVAL_MS));
    }
    collector.interval_ms = interval_ms;
    collector.due_ms = now_ms + interval_ms;
}

Json::Value Collectors::sample(const std::string& component, const SampleSource& source) const {
    return sample_of(find(component), source);
}

Json::Value Collectors::sample_of(const Collector& collector, const SampleSource& source) {
    Json::Value out = collector.collect(source);
    out["collector"] = collector.name;
    out["time"] = Json::Int64{std::time(nullptr)};
    out["running"] = source.path != nullptr;
    return out;
}

Json::Value Collectors::list() const {
    Json::Value out(Json::arrayValue);
    for (const Collector& collector : m_collectors) {
        Json::Value one(Json::objectValue);
        one["name"] = collector.name;
        one["enabled"] = collector.enabled;
        one["interval"] = Json::UInt64{collector.interval_ms};
        out.append(std::move(one));
    }
    return out;
}

uint64_t Collectors::tick(uint64_t now_ms, const SampleSource& source,
                          const std::function<void(std::string)>& take) {
    uint64_t next_ms = now_ms + IDLE_MS;
    for (Collector& collector : m_collectors) {
        if (!collector.enabled || !collector.exported) continue;
        if (now_ms >= collector.due_ms) {
            collector.due_ms += collector.interval_ms;
            // Missed samples aren't made up for.
            if (collector.due_ms <= now_ms) collector.due_ms = now_ms + collector.interval_ms;
            take(one_line(sample_of(collector, source)));
        }
        next_ms = std::min(next_ms, collector.due_ms);
    }
    return next_ms - now_ms;
}

}  // namespace corvo::engine
