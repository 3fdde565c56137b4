#include "client/words/known_names.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "client/evidence/evidence.h"
#include "client/evidence/evidence_dir.h"
#include "client/failure.h"
#include "client/interrupt.h"
#include "client/text/engine_state.h"
#include "client/text/json_access.h"
#include "client/wire/flow_lists.h"
#include "client/wire/local_daemon.h"
#include "utils/clock.h"

namespace brumectl {

namespace {

using Names = std::vector<Candidate>;

/** The longest wait after pressing Tab. */
constexpr int PATIENCE_MS = 300;

/** Sends requests to a daemon that may be busy or gone. */
class Asker {
 public:
    explicit Asker(const Surroundings& around)
        : m_around(around), m_options(around.options), m_context(m_options) {
        m_options.timeout_sec = PATIENCE_MS / 1000.0;
    }
    Asker(const Asker&) = delete;
    Asker& operator=(const Asker&) = delete;

    Json::Value ask(const std::string& method, const Json::Value& params = Json::Value()) {
        uint64_t now = corvo::monotonic_ms();
        if (now >= m_deadline_ms) throw TimedOut("");
        m_context.daemon().set_timeout_ms(static_cast<int>(m_deadline_ms - now));
        return m_context.daemon().call(method, params);
    }
    const Surroundings& around() const { return m_around; }
    Context& context() { return m_context; }

 private:
    const Surroundings& m_around;
    Options m_options;
    Context m_context;
    uint64_t m_deadline_ms = corvo::monotonic_ms() + PATIENCE_MS;
};

Names listed(const Json::Value& names, const std::string& description = {}) {
    Names found;
    if (!names.isArray()) return found;
    for (const Json::Value& name : names)
        found.push_back({string_of(name), description});
    return found;
}

Names collectors(Asker& asker) {
    // A refused request would add an error to the daemon's log.
    if (state_of(string_of(member_of(asker.ask("status"), "state"))) == UNLOADED) return {};
    Json::Value params;
    params["cmd"] = "ls";
    const Json::Value result = asker.ask("collect", params);
    const Json::Value& collectables = member_of(result, {"collect", "collectables"});
    Names found;
    if (!collectables.isArray()) return found;
    for (const Json::Value& one : collectables) {
        const std::string name = string_of(one.isString() ? one : member_of(one, "name"));
        const Json::Value& enabled = member_of(one, "enabled");
        const char* state = enabled == true ? "enabled" : enabled == false ? "disabled" : "";
        found.push_back({name, state});
    }
    return found;
}

const Candidate DEFAULT_INTERFACE = {"default", "the one that leads to the Internet"};

/** Of this machine only: nothing is known about another one's. */
Names interfaces(Asker& asker) {
    const std::string& address = asker.around().options.address;
    if (!address.empty() && !on_this_machine(Address::parse(address))) return {DEFAULT_INTERFACE};
    Names found = {DEFAULT_INTERFACE};
    for (const auto& entry : std::filesystem::directory_iterator("/sys/class/net")) {
        if (!entry.is_directory()) continue;
        std::string state;
        std::ifstream(entry.path() / "operstate") >> state;
        found.push_back({entry.path().filename().string(), state == "unknown" ? "" : state});
    }
    return found;
}

Names attached(Asker& asker) {
    return listed(member_of(asker.ask("status"), "attached"), "attached");
}

Names data_paths(Asker& asker) {
    return listed(member_of(asker.ask("status"), "dps"));
}

/** The functions that the daemon itself calls, and others of our engine. */
Names functions(Asker& /*asker*/) {
    return {{"help", "the functions that there are"},
            {"dp.ft.count", "number of flows"},
            {"dp.ft.dump", "a line per flow"},
            {"dp.ft.sui_ft_kill_all_flows", "forgets all flows"},
            {"dp.veld.sui_lut_remove_all_links", "forgets what was learned about hosts"}};
}

Names components(Asker& asker) {
    Json::Value params;
    params["type"] = "verbosity";
    params["verbosity"]["cmd"] = "get";
    const Json::Value result = asker.ask("log", params);
    const Json::Value& levels = member_of(result, {"verbosity", "comp"});
    Names found = listed(member_of(result, {"verbosity", "comps"}));
    found.push_back({"default"});
    for (Candidate& component : found)
        component.description = string_of(member_of(levels, component.text.c_str()));
    return found;
}

/** What a method tells of live traffic; null if the engine doesn't have it, or isn't active. */
Json::Value live(Asker& asker, const flow_lists::List& list) {
    const flow_lists::Ask ask = [&](const char* method, const Json::Value& params) {
        return asker.ask(method, params);
    };
    if (!flow_lists::obstacle(ask, asker.ask("status"), list).empty()) return {};
    return member_of(asker.ask(list.method), list.member);
}

std::string flows_of(const Json::Value& row) {
    return counted(count_of(member_of(row, "flows")), "flow", "flows");
}

Names live_protocols(Asker& asker) {
    const Json::Value protocols = live(asker, {"flows.summary", "protocols"});
    Names found;
    if (!protocols.isObject()) return found;
    for (const std::string& name : protocols.getMemberNames())
        found.push_back({name, flows_of(protocols[name])});
    return found;
}

/** Those with most bytes. */
Names live_hosts(Asker& asker) {
    Names found;
    for (const Json::Value& row : live(asker, flow_lists::HOSTS))
        found.push_back({string_of(member_of(row, "address")), flows_of(row)});
    return found;
}

Names subscribed(Asker& asker) {
    Json::Value params;
    params["cmd"] = "socket";
    params["op"] = "ls";
    const Json::Value result = asker.ask("notifications", params);
    Names found;
    if (!member_of(result, "ls").isArray()) return found;
    for (const Json::Value& socket : result["ls"])
        found.push_back({string_of(member_of(socket, "name"))});
    return found;
}

Names evidence(Asker& asker) {
    Names found;
    for (const Evidence& one : find_evidence(asker.context(), asker.around().evidence_dir))
        found.push_back({one.name, cause_text(one.report.cause)});
    return found;
}

constexpr struct {
    const char* word;
    const char* value;
    Names (*names)(Asker& asker);
} NAMED_VALUES[] = {
    {"attach", "intf", interfaces},          {"classify", "--dpaddr", data_paths},
    {"coffee", "--dpaddr", data_paths},      {"coffee", "func", functions},
    {"collect", "component", collectors},    {"detach", "intf", attached},
    {"evidence show", "name", evidence},     {"flows", "--host", live_hosts},
    {"flows", "--protocol", live_protocols}, {"log", "--comp", components},
    {"notifications", "socket", subscribed}, {"push_pcap", "--dpaddr", data_paths},
};

/** Names may come from anybody, and will soon be on somebody's command line. */
bool is_fit(const std::string& name) {
    return !name.empty() && name.front() != '-' && shell_word(name) == name;
}

}  // namespace

std::optional<std::vector<Candidate>> known_names(const std::string& word, const std::string& value,
                                                  const Surroundings& around) {
    const auto* known = std::find_if(std::begin(NAMED_VALUES), std::end(NAMED_VALUES),
                                     [&](const auto& row) { return row.word == word && row.value == value; });
    if (known == std::end(NAMED_VALUES)) return std::nullopt;
    Names found;
    // The line editor calls this from code that no exception may pass, not even that of Ctrl-C.
    interrupt::Deferred deferred;
    try {
        Asker asker(around);
        found = known->names(asker);
    } catch (const std::exception&) {
        // No daemon, no engine, no permission: completion isn't the place to report it.
        return found;
    }
    std::erase_if(found, [](const Candidate& candidate) { return !is_fit(candidate.text); });
    for (Candidate& candidate : found)
        candidate.description = harmless(candidate.description);
    return found;
}

}  // namespace brumectl
