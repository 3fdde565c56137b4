// The field checks that every command inherits.
#include <sys/stat.h>

#include <iterator>
#include <string_view>

#include "infra/corvo_rpc_command.h"
#include "utils/net_utils.h"

namespace corvo {

namespace {

const Json::Value& member_of(const Json::Value& params, const std::string& name) {
    if (!params.isNull() && !params.isObject()) throw Exception("internal parsing error");
    return params[name];
}

template <uint64_t MAX>
bool at_most(const Json::Value& value) {
    return value.asUInt64() <= MAX;
}

bool not_negative(const Json::Value& value) {
    return !(value.asDouble() < 0);
}

/** A value has a type if it is of that kind and within the range, if there is one. */
struct FieldType {
    const char* name;
    bool (Json::Value::*is_kind)() const;
    bool (*in_range)(const Json::Value&) = nullptr;
    const char* out_of_range = nullptr;
};

// Indexed by field_type_e.
constexpr FieldType FIELD_TYPES[] = {
    {"byte", &Json::Value::isUInt64, at_most<UINT8_MAX>, "has size bigger than uint8."},
    {"uint16", &Json::Value::isUInt64, at_most<UINT16_MAX>, "has size bigger than uint16."},
    {"uint32", &Json::Value::isUInt64, at_most<UINT32_MAX>, "has size bigger than uint32."},
    {"uint64", &Json::Value::isUInt64},
    {"int", &Json::Value::isInt},
    {"double", &Json::Value::isDouble},
    {"unsigned double", &Json::Value::isDouble, not_negative, "has negative value."},
    {"bool", &Json::Value::isBool},
    {"string", &Json::Value::isString},
    {"object", &Json::Value::isObject},
    {"array", &Json::Value::isArray},
};

// Indexed by Json::ValueType.
constexpr const char* JSON_TYPE_NAMES[] = {"null",   "int",     "uint",  "double",
                                           "string", "boolean", "array", "object"};

/** The file type bits of `path`, or 0 if it doesn't exist. */
mode_t file_type(const std::string& path) {
    struct stat info;
    // The system would ignore everything after an embedded NUL.
    if (path.find('\0') != std::string::npos || ::stat(path.c_str(), &info) != 0) return 0;
    return info.st_mode & S_IFMT;
}

}  // namespace

const char* RpcParser::type_to_str(field_type_e type) {
    return type < std::size(FIELD_TYPES) ? FIELD_TYPES[type].name : "UNKNOWN";
}

const char* RpcParser::json_type_to_name(const Json::Value& value) {
    const auto index = static_cast<size_t>(value.type());
    return index < std::size(JSON_TYPE_NAMES) ? JSON_TYPE_NAMES[index] : "UNKNOWN";
}

void RpcParser::check_field_type(const Json::Value& params, const std::string& name, field_type_e type,
                                 Json::Value& res) {
    check_field_type_common(member_of(params, name), name, type, res);
}

void RpcParser::check_field_type(const Json::Value& array, int index, field_type_e type, Json::Value& res) {
    if (!array.isArray() || index < 0) throw Exception("internal parsing error");
    const std::string name = "array element: " + std::to_string(static_cast<int64_t>(index) + 1) + " ";
    check_field_type_common(array[index], name, type, res);
}

void RpcParser::check_field_type_common(const Json::Value& value, const std::string& name, field_type_e type,
                                        Json::Value& res) {
    if (value.isNull()) generate_parse_err(res, "field '" + name + "' is missing");
    if (type >= std::size(FIELD_TYPES)) throw Exception("unhandled type");

    const FieldType& expected = FIELD_TYPES[type];
    std::string description;
    if (!(value.*expected.is_kind)()) {
        description = std::string("is '") + json_type_to_name(value) + "', expecting '" + expected.name + "'";
    } else if (expected.in_range && !expected.in_range(value)) {
        description = expected.out_of_range;
    } else {
        return;
    }
    generate_parse_err(
        res, "error at offset: " + std::to_string(static_cast<size_t>(value.getOffsetStart())) + " - '" +
                 name + "' " + description);
}

const Json::Value& optional_field(const Json::Value& params, const char* name) {
    return member_of(params, name);
}

template <>
const char* RpcParser::parse_choice<const char*>(const Json::Value& params, const std::string& name,
                                                 std::initializer_list<const char*> choices,
                                                 Json::Value& res) {
    const Json::Value& value = member_of(params, name);
    if (value.isNull()) generate_parse_err(res, "field '" + name + "' is missing");

    const char* begin = nullptr;
    const char* end = nullptr;
    if (value.getString(&begin, &end)) {
        const std::string_view text(begin, static_cast<size_t>(end - begin));
        for (const char* choice : choices) {
            if (text == choice) return choice;
        }
    }
    std::string known;
    for (const char* choice : choices) {
        if (!known.empty()) known += " ,";
        known.append("'").append(choice).append("'");
    }
    generate_parse_err(res, "field '" + name + "' can only be one of [" + known + "]");
}

void RpcParser::validate_path(const std::string& path, Json::Value& res) {
    if (file_type(path) == S_IFDIR) return;
    generate_parser_execute_err(res, "path '" + path + "' is not a valid directory or does not exists");
}

void RpcParser::validate_file(const std::string& path, Json::Value& res) {
    if (file_type(path) == S_IFREG) return;
    generate_parser_execute_err(res, "file '" + path + "' is not a valid file or does not exists");
}

void RpcParser::validate_ip(const std::string& ip, Json::Value& res) {
    if (NetUtils::is_valid_ipv4(ip) || NetUtils::is_valid_ipv6(ip)) return;
    generate_parser_execute_err(res, "invalid IPv4 / IPv6 address '" + ip + "'");
}

void RpcParser::generate_parse_err(Json::Value& res, const std::string& msg) {
    res["specific_err"] = msg;
    throw RpcCommandException(msg, CMD_BAD_PARAMS);
}

void RpcParser::generate_parser_execute_err(Json::Value& res, const std::string& msg) {
    res["specific_err"] = msg;
    throw RpcCommandException(msg, CMD_EXEC_FAILED);
}

}  // namespace corvo
