#include "flow_summary.h"

#include <map>
#include <string>

#include "samples.h"

namespace corvo::engine {
namespace {

constexpr uint64_t FINISH_MS = 15;

struct Sum {
    Traffic traffic;
    uint64_t guessed = 0;
    uint32_t cls = 0;
    const char* category = nullptr;
};

/** By name; two pairs of master and application may share one. */
std::map<std::string, Sum> sums_of(const Shards& path, bool guess) {
    std::map<std::string, Sum> out;
    Traffic unclassified = path.unclassified();
    path.for_each_classifier([&](const Classifier& classifier) {
        classifier.for_each_protocol([&](const ProtocolEntry& entry) {
            Traffic traffic = entry.traffic;
            if (!guess) {
                traffic -= entry.guessed;
                unclassified += entry.guessed;
            }
            if (traffic.packets == 0) return;
            Sum& sum = out[entry.full];
            sum.traffic += traffic;
            sum.guessed += guess ? entry.guessed.flows : 0;
            sum.cls = entry.cls;
            if (entry.category != 0) sum.category = classifier.category_name(entry.category);
        });
    });
    if (unclassified.packets > 0) out[UNCLASSIFIED].traffic = unclassified;
    return out;
}

Json::Value json_of(const Sum& sum) {
    Json::Value out = traffic_json(sum.traffic);
    out["cls"] = sum.cls;
    if (sum.cls == 0) return out;
    out["guessed"] = Json::UInt64{sum.guessed};
    if (sum.category) out["category"] = sum.category;
    return out;
}

}  // namespace

Json::Value summarize(NamedPath& path, bool finish, bool guess) {
    Shards& data = path.data;
    Json::Value out(Json::objectValue);
    out["complete"] = !finish || data.finish(FINISH_MS);
    out["dpaddr"] = path.name;
    out["instance"] = Json::UInt64{path.instance};
    Json::Value& protocols = out["protocols"] = Json::objectValue;
    for (const auto& [name, sum] : sums_of(data, guess))
        protocols[name] = json_of(sum);
    out["pushed"]["packets"] = Json::UInt64{data.pushed().packets};
    out["pushed"]["bytes"] = Json::UInt64{data.pushed().bytes};
    out["flows"] = data.flow_count();
    out["undecided"] = data.undecided();
    out["evicted"] = Json::UInt64{data.evicted()};
    out["errors"] = errors_json(&data);
    return out;
}

}  // namespace corvo::engine
