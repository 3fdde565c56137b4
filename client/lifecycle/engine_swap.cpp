#include "client/lifecycle/engine_swap.h"

#include <algorithm>

#include "client/failure.h"
#include "client/text/json_access.h"

namespace brumectl {

namespace {

engine_state_e state_of(const Json::Value& status) {
    return brumectl::state_of(string_of(member_of(status, "state"))).value_or(UNLOADED);
}

Json::Value command(const char* cmd) {
    Json::Value params;
    params["cmd"] = cmd;
    return params;
}

/** Null if the request is refused. */
Json::Value ask(Daemon& daemon, const char* method, const Json::Value& params) {
    try {
        return daemon.call(method, params);
    } catch (const ErrorReply&) {
        return Json::Value();
    }
}

void add_collector(const Json::Value& collector, std::vector<Request>& settings) {
    const Json::Value& name = member_of(collector, "name");
    if (!name.isString()) return;
    Json::Value params = command("set_interval");
    params["component"] = name;
    params["interval"] = member_of(collector, "interval");
    if (params["interval"].isUInt64()) settings.push_back({"collect", params});
    params = command("enable");
    params["component"] = name;
    if (member_of(collector, "enabled") == true) settings.push_back({"collect", params});
}

void add_exporter(const Json::Value& exporter, std::vector<Request>& settings) {
    Json::Value params = command("set_exporter");
    for (const char* name : {"type", "server", "port", "path"})
        if (const Json::Value& value = member_of(exporter, name); !value.isNull())
            params["socket"][name] = value;
    const Json::Value& type = member_of(exporter, "type");
    if (type.isString() && type != "none") settings.push_back({"collect", params});
}

}  // namespace

EngineSetup shown_setup(Daemon& daemon, const Json::Value& status) {
    EngineSetup setup{.state = state_of(status)};
    for (const Json::Value& name : member_of(status, "attached"))
        if (name.isString()) setup.interfaces.push_back(name.asString());

    Json::Value show = command("show");
    show["component"] = "flows";
    if (setup.state >= ACTIVE)
        if (const uint64_t most = count_of(member_of(ask(daemon, "collect", show), "max")); most > 0)
            setup.activate["resources"]["max_flows"] = Json::UInt64(most);

    const Json::Value collect = member_of(ask(daemon, "collect", command("ls")), "collect");
    add_exporter(member_of(collect, "exporter"), setup.settings);
    for (const Json::Value& collector : member_of(collect, "collectables"))
        add_collector(collector, setup.settings);
    Json::Value configure = command("configure");
    configure["json"] = ask(daemon, "health", command("get_config"));
    if (configure["json"].isObject() && !configure["json"].empty())
        setup.settings.push_back({"health", configure});
    return setup;
}

EngineSwap::outcome_e EngineSwap::run(const EngineSetup& present, const EngineSetup& wanted) {
    if (take_down()) {
        if (bring_up(wanted)) return SWAPPED;
        if (!take_down()) return FAILED;
    }
    return bring_up(present) ? WENT_BACK : FAILED;
}

engine_state_e EngineSwap::state() {
    return state_of(m_daemon.call("status"));
}

bool EngineSwap::step(const Request& request) {
    try {
        m_daemon.call(request.method, request.params);
    } catch (const ErrorReply& e) {
        m_tell(request, e.what());
        return false;
    } catch (const Failure& e) {
        m_tell(request, e.what());
        throw;
    }
    m_tell(request, "");
    return true;
}

bool EngineSwap::take_down() {
    const engine_state_e before = state();
    if (before == UNLOADED) return true;
    if (before >= ACTIVE && !step({"deactivate"})) return false;
    // An engine that fails to clean up is unloaded all the same.
    return step({"unload"}) || state() == UNLOADED;
}

/** Works from any state, and continues past an interface that can't be attached. */
bool EngineSwap::bring_up(const EngineSetup& setup) {
    const Json::Value status = m_daemon.call("status");
    const engine_state_e before = state_of(status);
    if (before == UNLOADED && !step({"load", setup.load})) return false;
    if (setup.state >= ACTIVE && before < ACTIVE && !step({"activate", setup.activate})) return false;
    const Json::Value& attached = member_of(status, "attached");
    bool done = true;
    for (const std::string& name : setup.interfaces) {
        if (std::find(attached.begin(), attached.end(), Json::Value(name)) != attached.end()) continue;
        Json::Value params;
        params["intf"] = name;
        done = step({"attach", params}) && done;
    }
    if (before == UNLOADED)
        for (const Request& setting : setup.settings)
            step(setting);
    return done;
}

}  // namespace brumectl
