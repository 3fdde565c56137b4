#include "client/text/json_access.h"

#include "infra/json/corvo_json.h"

namespace brumectl {

const Json::Value& member_of(const Json::Value& value, const char* name) {
    return value.isObject() ? value[name] : Json::Value::nullSingleton();
}

const Json::Value& member_of(const Json::Value& value, std::initializer_list<const char*> path) {
    const Json::Value* at = &value;
    for (const char* name : path)
        at = &member_of(*at, name);
    return *at;
}

Json::Value member_of(Json::Value&& value, std::initializer_list<const char*> path) {
    return member_of(static_cast<const Json::Value&>(value), path);
}

Json::Value member_of(Json::Value&& value, const char* name) {
    return member_of(static_cast<const Json::Value&>(value), name);
}

bool parse_whole(const std::string& text, Json::Value& out, std::string* error) {
    Json::Value value;
    if (!corvo::json::parse(text, value, error)) return false;
    if (text.find_first_not_of(" \t\r\n", static_cast<size_t>(value.getOffsetLimit())) != std::string::npos) {
        if (error != nullptr) *error = "something stands behind its end";
        return false;
    }
    out.swap(value);
    return true;
}

std::string string_of(const Json::Value& value) {
    return value.isString() ? value.asString() : std::string();
}

std::vector<std::string> texts_of(const Json::Value& array) {
    std::vector<std::string> texts;
    for (const Json::Value& text : array)
        texts.push_back(string_of(text));
    return texts;
}

uint64_t count_of(const Json::Value& value) {
    constexpr double TOO_LARGE = 18446744073709551616.0;
    if (value.isUInt64()) return value.asUInt64();
    if (!value.isDouble() || !(value.asDouble() >= 0) || value.asDouble() >= TOO_LARGE) return 0;
    return static_cast<uint64_t>(value.asDouble());
}

}  // namespace brumectl
