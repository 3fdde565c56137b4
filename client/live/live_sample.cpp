#include "client/live/live_sample.h"

#include <algorithm>

#include "client/failure.h"
#include "client/text/json_access.h"
#include "utils/clock.h"

namespace brumectl {

namespace {

/** Sends requests within a common time limit. */
class Asker {
 public:
    Asker(Daemon& daemon, int budget_ms)
        : m_daemon(daemon), m_deadline_ms(corvo::monotonic_ms() + static_cast<uint64_t>(budget_ms)) {}

    Json::Value call(const char* method, const Json::Value& params = Json::Value()) {
        uint64_t now = corvo::monotonic_ms();
        m_daemon.set_timeout_ms(now < m_deadline_ms ? static_cast<int>(m_deadline_ms - now) : 1);
        return m_daemon.call(method, params);
    }

    Answer ask(const char* method, const Json::Value& params) {
        try {
            return {call(method, params), {}};
        } catch (const ErrorReply& e) {
            return {{}, e.what()};
        }
    }

 private:
    Daemon& m_daemon;
    uint64_t m_deadline_ms;
};

Json::Value command(const char* cmd) {
    Json::Value params;
    params["cmd"] = cmd;
    return params;
}

bool is_listed(const Json::Value& collectables, const std::string& name) {
    return collectables.isArray() &&
           std::any_of(collectables.begin(), collectables.end(), [&name](const Json::Value& listed) {
               return string_of(listed) == name || string_of(member_of(listed, "name")) == name;
           });
}

Answer ask_collector(Asker& asker, const Answer& collectors, const char* name) {
    if (!collectors.error.empty()) return {{}, collectors.error};
    if (!is_listed(member_of(collectors.value, "collectables"), name))
        return {{}, std::string("the engine has no collector '") + name + "'"};
    Json::Value params = command("show");
    params["component"] = name;
    return asker.ask("collect", params);
}

void ask_engine(Asker& asker, LiveSample& sample) {
    Json::Value verbose = command("show");
    verbose["verbose"] = true;
    sample.health = asker.ask("health", verbose);
    sample.collectors = asker.ask("collect", command("ls"));
    sample.collectors.value = member_of(sample.collectors.value, "collect");
    sample.flows = ask_collector(asker, sample.collectors, "flows");
    sample.protocols = ask_collector(asker, sample.collectors, "protocols");
    sample.interfaces = ask_collector(asker, sample.collectors, "interfaces");
}

}  // namespace

LiveSample LiveSample::take(Daemon& daemon, int budget_ms) {
    Asker asker(daemon, budget_ms);
    LiveSample sample;
    sample.status = asker.call("status");
    if (!sample.status.isObject()) throw Failure("the daemon's status can't be read");
    sample.machine = Machine::look(daemon.address(), sample.status);
    if (string_of(sample.status["state"]) == "not loaded") {
        const Answer none{{}, "no engine is loaded"};
        sample.health = sample.collectors = sample.flows = sample.protocols = sample.interfaces = none;
    } else {
        ask_engine(asker, sample);
    }
    sample.alerts = asker.ask("notifications", command("alerts"));
    sample.alerts.value = member_of(sample.alerts.value, {"notif", "alerts"});
    sample.taken_ms = corvo::monotonic_ms();
    return sample;
}

Json::Value LiveSample::json() const {
    Json::Value out;
    out["status"] = status;
    const struct {
        const char* name;
        const Answer& answer;
    } parts[] = {{"health", health},       {"collect", collectors},    {"flows", flows},
                 {"protocols", protocols}, {"interfaces", interfaces}, {"alerts", alerts}};
    for (const auto& part : parts)
        if (part.answer.error.empty())
            out[part.name] = part.answer.value;
        else
            out["errors"][part.name] = part.answer.error;
    if (machine.used_memory) out["machine"]["used_memory"] = Json::UInt64{*machine.used_memory};
    if (machine.cpu_sec) out["machine"]["cpu_sec"] = *machine.cpu_sec;
    return out;
}

}  // namespace brumectl
