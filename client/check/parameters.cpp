#include "client/check/parameters.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <string_view>

#include "client/text/complaints.h"
#include "client/text/fields.h"
#include "client/text/json_access.h"
#include "infra/json/corvo_json.h"

namespace brumectl::check {

namespace {

struct Kind {
    std::string_view name;  ///< in a schema
    bool (Json::Value::*fits)() const;
    const char* words;
};
constexpr Kind KINDS[] = {
    {"string", &Json::Value::isString, "a string"},        {"boolean", &Json::Value::isBool, "true or false"},
    {"object", &Json::Value::isObject, "an object"},       {"array", &Json::Value::isArray, "an array"},
    {"integer", &Json::Value::isUInt64, "a whole number"},
};

/** Indexed by Json::ValueType. */
constexpr const char* VALUE_WORDS[] = {"null",     "a number",  "a number", "a number",
                                       "a string", "a boolean", "an array", "an object"};

std::string quoted(const std::string& word) {
    return "'" + word + "'";
}

std::string list_of(const Json::Value& words) {
    std::string out;
    for (const Json::Value& word : words)
        out += (out.empty() ? "" : ", ") + corvo::json::write(word);
    return out;
}

bool holds(const Json::Value& list, const Json::Value& value) {
    return std::find(list.begin(), list.end(), value) != list.end();
}

/** Reads an address as the daemon does: leading blanks, a sign and 0x are allowed. */
bool is_hexadecimal(const std::string& text) {
    char* end = nullptr;
    errno = 0;
    strtoull(text.c_str(), &end, 16);
    return errno == 0 && end != text.c_str() && end == text.c_str() + text.size();
}

/** Walks a value along its schema, which limits the depth. */
class SchemaCheck {
 public:
    SchemaCheck(const std::string& method, const Build& build, Report& report)
        : m_method(method), m_build(build), m_report(report) {}

    void value(const Json::Value& value, const Json::Value& schema_or_ref, const std::string& path,
               severity_e severity) {
        const Json::Value& schema = MethodTable::get().resolve(schema_or_ref);
        if (is_refused(value, schema, path) || !fits_kind(value, schema, path, severity)) return;
        if (schema.isMember("enum") && !holds(schema["enum"], value)) {
            add(severity, value, quoted(path) + " can only be one of " + list_of(schema["enum"]));
        } else if (schema["format"] == "hexadecimal" && !is_hexadecimal(value.asString())) {
            add(severity, value, quoted(path) + " must be a hexadecimal number of at most 64 bits");
        } else if (schema.isMember("maxItems") && value.size() > schema["maxItems"].asUInt()) {
            add(severity, value, quoted(path) + " can hold at most " + schema["maxItems"].asString());
        } else if (value.isArray()) {
            for (Json::ArrayIndex i = 0; i < value.size(); ++i)
                this->value(value[i], schema["items"], path + "[" + std::to_string(i) + "]", severity);
        } else if (value.isObject() && (schema.isMember("properties") || schema.isMember("oneOf"))) {
            object(value, schema, path, severity);
        }
    }

 private:
    void add(severity_e severity, const Json::Value& at, const std::string& text) {
        m_report.add(severity, static_cast<size_t>(at.getOffsetStart()), m_method + ": " + text);
    }

    bool is_refused(const Json::Value& value, const Json::Value& schema, const std::string& path) {
        const std::string refusal = refusal_of(schema, value, m_build);
        if (!refusal.empty()) add(ERROR, value, quoted(path) + " " + refusal);
        return !refusal.empty();
    }

    bool fits_kind(const Json::Value& value, const Json::Value& schema, const std::string& path,
                   severity_e severity) {
        const std::string name = schema["type"].asString();
        for (const Kind& kind : KINDS) {
            if (kind.name != name) continue;
            const Json::Value& maximum = schema[schema.isMember("x-limit") ? "x-limit" : "maximum"];
            bool negative = value.isNumeric() && value.asDouble() < 0;
            if (kind.name == "integer" && (negative || (value.isUInt64() && !maximum.isNull() &&
                                                        value.asUInt64() > maximum.asUInt64()))) {
                add(severity, value,
                    quoted(path) + " must be from 0 to " + std::to_string(maximum.asUInt64()));
                return false;
            }
            if ((value.*kind.fits)()) return true;
            add(severity, value,
                quoted(path) + " must be " + kind.words + ", not " +
                    (value.isNumeric() && kind.name == "integer"
                         ? std::string("a fraction or a larger number")
                         : VALUE_WORDS[value.type()]));
            return false;
        }
        return true;  // any value is allowed here
    }

    /** The kind of object selected by one of its words; null if there is no choice. */
    static const Json::Value* variant_of(const Json::Value& value, const Json::Value& schema) {
        for (const Json::Value& variant : schema["oneOf"]) {
            for (const std::string& name : variant["properties"].getMemberNames()) {
                const Json::Value& member = variant["properties"][name];
                if (schema["properties"].isMember(name) && holds(member["enum"], value[name]))
                    return &variant;
            }
        }
        return nullptr;
    }

    void object(const Json::Value& value, const Json::Value& schema, const std::string& path,
                severity_e severity) {
        const Json::Value* variant = variant_of(value, schema);
        std::vector<std::string> known;
        members(value, schema, path, severity, known);
        if (variant) members(value, *variant, path, severity, known);
        // Without that word, the other members can't be checked.
        if (schema.isMember("oneOf") && !variant) return;
        for (const std::string& name : value.getMemberNames())
            if (std::find(known.begin(), known.end(), name) == known.end())
                m_report.warning_at_name(value[name], m_method + ": " + quoted(path + "." + name) +
                                                          " is not read here" + did_you_mean(name, known));
    }

    void members(const Json::Value& value, const Json::Value& schema, const std::string& path,
                 severity_e severity, std::vector<std::string>& known) {
        for (const Json::Value& name : schema["required"])
            if (value[name.asString()].isNull())
                add(severity, value, quoted(path + "." + name.asString()) + " is missing");
        for (const std::string& name : schema["properties"].getMemberNames()) {
            if (std::find(known.begin(), known.end(), name) != known.end()) continue;
            known.push_back(name);
            const Json::Value& described = schema["properties"][name];
            if (!value[name].isNull())
                this->value(value[name], described, path + "." + name, severity);
            else if (value.isMember(name))
                is_refused(value[name], described, path + "." + name);
        }
    }

    const std::string& m_method;
    const Build& m_build;
    Report& m_report;
};

/** The words allowed for a parameter, given the others; null if all those of its schema are. */
const Json::Value& words_beside(const Parameter& parameter, const Json::Value& params) {
    const Json::Value& when = *parameter.enum_when;
    for (const std::string& other : when.getMemberNames()) {
        const Json::Value& words = member_of(when[other], string_of(params[other]).c_str());
        if (!words.isNull()) return words;
    }
    return Json::Value::nullSingleton();
}

std::string condition_text(const Json::Value& when) {
    std::string out;
    for (const std::string& name : when.getMemberNames())
        out += (out.empty() ? " with " : ", ") + quoted(name) + " " + list_of(when[name]);
    return out;
}

}  // namespace

std::string refusal_of(const Json::Value& description, const Json::Value& value, const Build& build) {
    const Json::Value& refused_by = description["x-refused-by"];
    const struct {
        const char* name;
        bool applies;
        const char* words;
    } BUILDS[] = {{"any", true, "every daemon"},
                  {"slave", build.slave_mode, "a daemon in slave mode"},
                  {"bare metal", build.bare_metal, "a daemon for bare metal"}};
    for (const auto& one : BUILDS) {
        const Json::Value& values = refused_by[one.name];
        if (one.applies && (values == true || (values.isArray() && holds(values, value))))
            return std::string("is refused by ") + one.words +
                   (values.isArray() ? " if it is " + corvo::json::write(value) : "");
    }
    return "";
}

void check_parameters(const Method& method, const Json::Value& request, const Build& build, Report& report) {
    const Json::Value& given = request["params"];
    const Json::Value& at = given.isNull() ? request : given;
    Json::Value params = given.isNull() ? Json::Value(Json::objectValue) : given;
    params.setOffsetStart(at.getOffsetStart());
    SchemaCheck check(method.name, build, report);
    std::vector<std::string> known;
    for (const Parameter& parameter : method.parameters) {
        known.push_back(parameter.name);
        const Json::Value& value = params[parameter.name];
        const Json::Value& when = *parameter.required_when;
        const bool needed = is_needed(parameter, params);
        const Json::Value& words = words_beside(parameter, params);
        if (!words.isNull() && value.isString() && !holds(words, value)) {
            report.error(value, method.name + ": " + quoted(parameter.name) + " can only be one of " +
                                    list_of(words) + " here");
        } else if (!value.isNull()) {
            // Parameters that aren't needed are mostly not read either: worth a warning, but not an error.
            check.value(value, *parameter.schema, parameter.name, when.isNull() || needed ? ERROR : WARNING);
        } else if (needed) {
            report.error(at, method.name + ": " + quoted(parameter.name) + " is missing" +
                                 (parameter.required ? "" : condition_text(when)));
        } else if ((*parameter.schema)["default"].isObject()) {
            Json::Value meant = (*parameter.schema)["default"];
            for (const std::string& name : meant.getMemberNames())
                meant[name].setOffsetStart(at.getOffsetStart());
            check.value(meant, *parameter.schema, parameter.name, ERROR);
        }
    }
    for (const std::string& name : params.getMemberNames())
        if (!method.find(name))
            report.warning_at_name(params[name], method.name + ": " + quoted(name) +
                                                     " is no parameter, the daemon ignores it" +
                                                     did_you_mean(name, known));
}

}  // namespace brumectl::check
