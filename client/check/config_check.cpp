#include "client/check/config_check.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "client/text/complaints.h"
#include "client/text/method_table.h"
#include "infra/json/corvo_json.h"

namespace brumectl::check {

namespace {

const std::vector<std::string> REQUEST_MEMBERS = {"jsonrpc", "method", "params", "id", "accept"};

std::vector<std::string> method_names(const Settings& settings) {
    std::vector<std::string> names = settings.methods;
    for (const Method& method : MethodTable::get().methods())
        names.push_back(method.name);
    return names;
}

bool contains(const std::vector<std::string>& list, const std::string& word) {
    return std::find(list.begin(), list.end(), word) != list.end();
}

/** Offset of a line and column from the reader's message. */
size_t offset_of(const std::string& text, unsigned line, unsigned column) {
    size_t at = 0;
    for (; line > 1 && at != std::string::npos; --line)
        at = text.find('\n', at) == std::string::npos ? text.size() : text.find('\n', at) + 1;
    return at + (column > 0 ? column - 1 : 0);
}

/** Skips blanks and comments. */
size_t skip_nothing(const std::string& text, size_t at) {
    for (;;) {
        at = std::min(text.find_first_not_of(" \t\r\n", at), text.size());
        const bool line = text.compare(at, 2, "//") == 0;
        if (!line && text.compare(at, 2, "/*") != 0) return at;
        size_t end = text.find(line ? "\n" : "*/", at + 2);
        if (end == std::string::npos) return text.size();
        at = end + (line ? 1 : 2);
    }
}

}  // namespace

void ConfigCheck::run() {
    Json::Value root;
    if (!parse(root)) return;
    check_end(root);
    if (!root.isArray()) return m_report.error(root, "a configuration is an array of requests");
    if (root.empty()) m_report.warning(root, "no requests");
    for (const Json::Value& element : root)
        check_element(element, false);
}

bool ConfigCheck::parse(Json::Value& root) {
    std::string error;
    if (corvo::json::parse(m_text, root, &error)) return true;
    // "* Line 2, Column 9
    //   text
    // ", possibly followed by consequential errors.
    unsigned line = 1;
    unsigned column = 1;
    int read = 0;
    if (sscanf(error.c_str(), "* Line %u, Column %u %n", &line, &column, &read) < 2) read = 2;
    std::string text = error.substr(std::min(error.size(), static_cast<size_t>(read)));
    m_report.add(ERROR, offset_of(m_text, line, column), text.substr(0, text.find('\n')));
    return false;
}

void ConfigCheck::check_end(const Json::Value& root) {
    size_t end = skip_nothing(m_text, static_cast<size_t>(root.getOffsetLimit()));
    if (end < m_text.size()) m_report.add(WARNING, end, "ignored: stands behind the end of the array");
}

void ConfigCheck::check_element(const Json::Value& element, bool in_batch) {
    if (element.isObject()) return check_request(element);
    if (!element.isArray() || in_batch)
        return m_report.error(element, "a request is an object");  // including null, which would do nothing
    if (element.empty()) m_report.warning(element, "an empty batch does nothing");
    for (const Json::Value& request : element)
        check_element(request, true);
}

void ConfigCheck::check_request(const Json::Value& request) {
    m_requests.push_back(request);
    check_envelope(request);
    check_id(request);
    const Json::Value& method = request["method"];
    if (!method.isString() || method.asString().empty()) {
        m_report.error(method.isNull() ? request : method,
                       method.isNull() ? "'method' is missing" : "'method' must be a name");
        return;
    }
    check_method(request, method.asString());
}

void ConfigCheck::check_envelope(const Json::Value& request) {
    if (request["jsonrpc"] != "2.0")
        m_report.error(request["jsonrpc"].isNull() ? request : request["jsonrpc"],
                       "'jsonrpc' must be \"2.0\"");
    const Json::Value& accept = request["accept"];
    if (!accept.isNull() && !accept.isArray()) m_report.error(accept, "'accept' must be an array");
    for (const std::string& name : request.getMemberNames()) {
        if (contains(REQUEST_MEMBERS, name)) continue;
        m_report.warning_at_name(request[name], "'" + name +
                                                    "' is no member of a request, the daemon ignores it" +
                                                    did_you_mean(name, REQUEST_MEMBERS));
    }
}

void ConfigCheck::check_id(const Json::Value& request) {
    const Json::Value& id = request["id"];
    if (id.isNull()) return m_report.warning(request, "without an 'id' nobody notices if this request fails");
    std::string text = corvo::json::write(id);
    if (!m_ids.insert(text).second) m_report.warning(id, "another request has the id " + text);
}

void ConfigCheck::check_method(const Json::Value& request, const std::string& name) {
    const Json::Value& at = request["method"];
    const Json::Value& params = request["params"];
    const Method* method = MethodTable::get().find(name);
    if (!params.isNull() && !params.isObject())
        m_report.error(params, name == "echo"
                                   ? "echo: 'params' must be an object; anything else stops the daemon"
                                   : name + ": 'params' must be an object");
    else if (method)
        check_parameters(*method, request, m_settings.build, m_report);
    if (m_stopped) m_report.warning(at, name + ": the daemon stops, a 'shutdown' stands before this");
    m_stopped = m_stopped || name == "shutdown";
    if (method)
        check_order(at, *method);
    else
        check_unknown_method(at, name);
}

void ConfigCheck::check_unknown_method(const Json::Value& at, const std::string& name) {
    if (contains(m_settings.methods, name)) return;
    // A library loaded by then may add methods under its component's name.
    const bool may_be_engines = m_states.state() != UNLOADED && name.find('.') != std::string::npos;
    if (may_be_engines)
        m_report.warning(at, "'" + name + "' is no method of the daemon; the engine may bring it");
    else
        m_report.error(at, "'" + name + "' is no method" + did_you_mean(name, method_names(m_settings)));
}

void ConfigCheck::check_order(const Json::Value& at, const Method& method) {
    for (const std::string& refusal :
         {refusal_of(*method.document, Json::Value(), m_settings.build), m_states.follow(method)})
        if (!refusal.empty()) m_report.error(at, method.name + ": " + refusal);
}

}  // namespace brumectl::check
