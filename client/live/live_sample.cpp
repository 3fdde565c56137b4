#include "client/live/live_sample.h"

#include <algorithm>

#include "client/failure.h"
#include "client/text/engine_state.h"
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

/** Rows of a list that are asked for: about a page, more than most screens have lines. */
constexpr unsigned LISTED_ROWS = 100;

ListAnswer ask_list(Asker& asker, const Json::Value& status, const ListWish& wish) {
    ListAnswer out{.list = wish.list};
    if (wish.list == nullptr) return out;
    const flow_lists::Ask ask = [&](const char* method, const Json::Value& params) {
        Json::Value answer = asker.call(method, params);
        out.total = std::max(out.total, count_of(member_of(answer, "total")));
        return answer;
    };
    try {
        out.error = flow_lists::obstacle(ask, status, *wish.list);
        if (!out.error.empty()) return out;
        Json::Value params;
        params["limit"] = LISTED_ROWS;
        if (wish.sort != nullptr) params["sort"] = wish.sort;
        flow_lists::read(ask, *wish.list, params, [&out](const Json::Value& row) {
            out.rows.push_back(row);
            return out.rows.size() < LISTED_ROWS;
        });
    } catch (const ErrorReply& e) {
        out.error = e.what();
    }
    return out;
}

}  // namespace

LiveSample LiveSample::take(Daemon& daemon, int budget_ms, const ListWish& wish) {
    Asker asker(daemon, budget_ms);
    LiveSample sample;
    sample.status = asker.call("status");
    if (!sample.status.isObject()) throw Failure("the daemon's status can't be read");
    sample.machine = Machine::look(daemon.address(), sample.status);
    if (state_of(string_of(sample.status["state"])) == UNLOADED) {
        const Answer none{{}, "no engine is loaded"};
        sample.health = sample.collectors = sample.flows = sample.protocols = sample.interfaces = none;
    } else {
        ask_engine(asker, sample);
    }
    sample.listed = ask_list(asker, sample.status, wish);
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
    if (listed.list != nullptr && !listed.error.empty()) out["errors"]["list"] = listed.error;
    if (listed.list != nullptr && listed.error.empty()) {
        Json::Value& rows = out["list"][listed.list->member] = Json::Value(Json::arrayValue);
        for (const Json::Value& row : listed.rows)
            rows.append(row);
        out["list"]["total"] = Json::UInt64{listed.total};
    }
    if (machine.used_memory) out["machine"]["used_memory"] = Json::UInt64{*machine.used_memory};
    if (machine.cpu_sec) out["machine"]["cpu_sec"] = *machine.cpu_sec;
    return out;
}

}  // namespace brumectl
