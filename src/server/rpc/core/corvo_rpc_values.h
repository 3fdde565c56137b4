#pragma once
// Conversion between C++ values and JSON: reads parameters by their C++ type, with the checks and error texts
// of RpcParser, and writes lists.

#include <json/value.h>

#include <cstdint>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "infra/corvo_rpc_command.h"

namespace corvo {

/** A member's name as a literal, which needn't be copied into each object. */
using Key = Json::StaticString;

/** The field type whose check makes a member safe to read as `T`. */
template <class T>
constexpr RpcParser::field_type_e field_type_of() {
    if constexpr (std::is_same_v<T, bool>) return RpcParser::TYPE_BOOL;
    if constexpr (std::is_same_v<T, std::string>) return RpcParser::TYPE_STRING;
    if constexpr (std::is_same_v<T, uint8_t>) return RpcParser::TYPE_BYTE;
    if constexpr (std::is_same_v<T, uint16_t>) return RpcParser::TYPE_UINT16;
    if constexpr (std::is_same_v<T, uint32_t>) return RpcParser::TYPE_UINT32;
    if constexpr (std::is_same_v<T, uint64_t>) return RpcParser::TYPE_UINT64;
}

/** Member `name`, checked. */
template <class T>
T required_param(RpcParser& parser, const Json::Value& params, const char* name, Json::Value& res) {
    parser.check_field_type(params, name, field_type_of<T>(), res);
    const Json::Value& value = params[name];
    if constexpr (std::is_same_v<T, bool>) {
        return value.asBool();
    } else if constexpr (std::is_same_v<T, std::string>) {
        return value.asString();
    } else {
        return static_cast<T>(value.asUInt64());
    }
}

/** Member `name`, checked; `fallback` if it is absent or null. */
template <class T>
T optional_param(RpcParser& parser, const Json::Value& params, const char* name, T fallback,
                 Json::Value& res) {
    if (optional_field(params, name).isNull()) return fallback;
    return required_param<T>(parser, params, name, res);
}

/** An array of strings, even if `texts` is empty. */
inline Json::Value to_json_array(const std::vector<std::string>& texts) {
    Json::Value array(Json::arrayValue);
    for (const std::string& text : texts)
        array.append(text);
    return array;
}

}  // namespace corvo
