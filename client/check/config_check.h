#pragma once
// Checks a startup configuration against the daemon's rules, without a daemon: the text, the shape of each
// request, its parameters, and whether the engine is in the right state at that point.

#include <json/value.h>

#include <set>
#include <string>
#include <vector>

#include "client/check/engine_states.h"
#include "client/check/parameters.h"
#include "client/check/report.h"

namespace brumectl::check {

struct Settings {
    Build build = {};
    engine_state_e state = UNLOADED;  ///< the engine's state before the first request
    /** Methods of the daemon that will run the requests; empty if there is none to query. */
    std::vector<std::string> methods = {};
};

class ConfigCheck {
 public:
    /** All arguments must outlive this object. */
    ConfigCheck(const std::string& text, const Settings& settings, Report& report)
        : m_text(text), m_settings(settings), m_report(report), m_states(settings.state) {}

    void run();
    /** After `run`: the requests in order, including those in batches. Empty if the text isn't an array. */
    const std::vector<Json::Value>& requests() const { return m_requests; }

 private:
    bool parse(Json::Value& root);
    void check_end(const Json::Value& root);
    void check_element(const Json::Value& element, bool in_batch);
    void check_request(const Json::Value& request);
    void check_envelope(const Json::Value& request);
    void check_id(const Json::Value& request);
    void check_method(const Json::Value& request, const std::string& name);
    void check_unknown_method(const Json::Value& at, const std::string& name);
    void check_order(const Json::Value& at, const Method& method);

    const std::string& m_text;
    const Settings& m_settings;
    Report& m_report;
    EngineStates m_states;
    std::vector<Json::Value> m_requests;
    std::set<std::string> m_ids;  ///< as texts
    bool m_stopped = false;       ///< a `shutdown` has been seen
};

}  // namespace brumectl::check
