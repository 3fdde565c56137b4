#include "client/wire/engine_methods.h"

#include <algorithm>
#include <set>
#include <string>

#include "client/failure.h"
#include "client/text/json_access.h"
#include "client/text/terminal.h"

namespace brumectl {

namespace {

constexpr int MAX_DEPTH = 32;
constexpr const char* DESCRIBE = ".describe";

/** Names become words and options. */
bool is_name(const std::string& text) {
    constexpr const char* LETTERS = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_.-";
    return !text.empty() && text.size() <= 64 && text.find_first_not_of(LETTERS) == std::string::npos &&
           text.front() != '-' && text.front() != '.';
}

const Json::Value& target(const Json::Value& document, const std::string& reference) {
    const Json::Value* at = &document;
    for (size_t begin = reference.find('/'); begin != std::string::npos;) {
        const size_t end = reference.find('/', begin + 1);
        at = &member_of(*at, reference.substr(begin + 1, end - begin - 1).c_str());
        begin = end;
    }
    return *at;
}

/** Copies a value, making texts harmless and resolving references. */
Json::Value tamed(const Json::Value& document, const Json::Value& value, int depth = 0) {
    if (depth > MAX_DEPTH) throw Failure("an engine's description of its methods is too deep");
    if (value.isString()) return harmless(value.asString(), true);
    if (value.isArray()) {
        Json::Value out(Json::arrayValue);
        for (const Json::Value& item : value)
            out.append(tamed(document, item, depth + 1));
        return out;
    }
    if (!value.isObject()) return value;
    if (value["$ref"].isString())
        return tamed(document, target(document, value["$ref"].asString()), depth + 1);
    Json::Value out(Json::objectValue);
    for (const std::string& name : value.getMemberNames())
        out[name] = tamed(document, value[name], depth + 1);
    return out;
}

bool is_parameter(const Json::Value& parameter) {
    return parameter.isObject() && parameter["name"].isString() && is_name(parameter["name"].asString()) &&
           (parameter["description"].isNull() || parameter["description"].isString()) &&
           (parameter["required"].isNull() || parameter["required"].isBool()) &&
           parameter["x-required-when"].isNull() && parameter["schema"].isObject();
}

/** Whether a word can be made of the method. */
bool is_method(const Json::Value& method) {
    const Json::Value& params = member_of(method, "params");
    return method.isObject() && method["name"].isString() &&
           (method["summary"].isNull() || method["summary"].isString()) &&
           (method["description"].isNull() || method["description"].isString()) &&
           (params.isNull() || params.isArray()) && std::all_of(params.begin(), params.end(), is_parameter);
}

void add_methods(const Json::Value& document, const std::set<std::string>& known, Json::Value& out) {
    const Json::Value& methods = member_of(document, "methods");
    if (!methods.isArray()) return;
    for (const Json::Value& method : methods) {
        const std::string name = string_of(member_of(method, "name"));
        if (known.count(name) == 0 || !is_name(name) || MethodTable::get().find(name) != nullptr) continue;
        const Json::Value own = tamed(document, method);
        if (is_method(own)) out["methods"].append(own);
    }
}

}  // namespace

std::unique_ptr<MethodTable> engine_methods(Daemon& daemon) {
    std::set<std::string> known;
    const Json::Value names = daemon.call("cmds");
    if (names.isArray())
        for (const Json::Value& name : names)
            known.insert(string_of(name));
    Json::Value document;
    for (const std::string& name : known) {
        const size_t at = name.rfind(DESCRIBE);
        if (at == std::string::npos || at == 0 || name.substr(at) != DESCRIBE) continue;
        add_methods(daemon.call(name), known, document);
    }
    if (document["methods"].empty()) return nullptr;
    return std::make_unique<MethodTable>(std::move(document));
}

}  // namespace brumectl
