#include "support/json_schema.h"

#include <algorithm>
#include <map>
#include <set>
#include <stdexcept>
#include <string>

namespace test {
namespace {

bool is_of_type(const Json::Value& value, const std::string& type) {
    static const std::map<std::string, bool (Json::Value::*)() const> TYPES = {
        {"object", &Json::Value::isObject},
        {"array", &Json::Value::isArray},
        {"string", &Json::Value::isString},
        {"boolean", &Json::Value::isBool},
        {"integer", &Json::Value::isIntegral}};
    return (value.*TYPES.at(type))();
}

bool members_validate(const Json::Value& schema, const Json::Value& value) {
    for (const Json::Value& name : schema["required"])
        if (!value.isMember(name.asString())) return false;
    for (const std::string& name : value.getMemberNames()) {
        const Json::Value& more = schema["additionalProperties"];
        const bool known = schema["properties"].isMember(name);
        if (!known && more.isBool() && !more.asBool()) return false;
        if (known && !validates(schema["properties"][name], value[name])) return false;
        if (!known && more.isObject() && !validates(more, value[name])) return false;
    }
    return true;
}

}  // namespace

bool validates(const Json::Value& schema, const Json::Value& value) {
    static const std::set<std::string> KEYWORDS = {
        "additionalProperties", "default",  "description", "enum",   "items",   "maximum", "minimum", "oneOf",
        "properties",           "required", "type",        "format", "maxItems"};
    for (const std::string& keyword : schema.getMemberNames())
        if (!KEYWORDS.contains(keyword) && !keyword.starts_with("x-"))
            throw std::logic_error("unknown keyword " + keyword);
    const auto valid = [&value](const Json::Value& part) { return validates(part, value); };
    const auto &variants = schema["oneOf"], &choices = schema["enum"];
    if (schema.isMember("type") && !is_of_type(value, schema["type"].asString())) return false;
    if (!choices.isNull() && std::count(choices.begin(), choices.end(), value) == 0) return false;
    if (schema.isMember("minimum") && (!value.isUInt64() || value < schema["minimum"])) return false;
    if (schema.isMember("maximum") && value.asUInt64() > schema["maximum"].asUInt64()) return false;
    if (!variants.isNull() && std::count_if(variants.begin(), variants.end(), valid) != 1) return false;
    if (value.isArray() && schema.isMember("items"))
        for (const Json::Value& item : value)
            if (!validates(schema["items"], item)) return false;
    return !value.isObject() || members_validate(schema, value);
}

}  // namespace test
