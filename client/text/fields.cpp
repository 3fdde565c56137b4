#include "client/text/fields.h"

#include <algorithm>
#include <charconv>
#include <map>

#include "client/failure.h"
#include "client/text/complaints.h"
#include "client/text/json_access.h"

namespace brumectl {

namespace {

constexpr struct {
    uint64_t maximum;
    const char* name;
} INTEGERS[] = {{UINT8_MAX, "uint8"}, {UINT16_MAX, "uint16"}, {UINT32_MAX, "uint32"}, {UINT64_MAX, "uint64"}};

std::string join(const std::vector<std::string>& words, const std::string& between) {
    std::string out;
    for (const std::string& word : words)
        out += (out.empty() ? "" : between) + word;
    return out;
}

bool contains(const Json::Value& array, const Json::Value& value) {
    return std::find(array.begin(), array.end(), value) != array.end();
}

std::string join_sentences(const std::string& first, const std::string& second) {
    if (first.empty() || second.empty()) return first + second;
    return first + (first.back() == '.' ? " " : "; ") + second;
}

/** The member that distinguishes an object's variants: each variant has its own choices for it. */
std::string discriminator(const Json::Value& schema) {
    for (const std::string& name : schema["properties"].getMemberNames())
        if (schema["oneOf"].size() > 0 && schema["oneOf"][0]["properties"][name].isMember("enum"))
            return name;
    return "";
}

void add_fields(const std::string& path, const std::string& description, const Json::Value& schema,
                bool required, std::vector<Field>& fields);

void add_members(const std::string& path, const Json::Value& schema, bool parent_required,
                 std::vector<Field>& fields) {
    const Json::Value& properties = schema["properties"];
    for (const std::string& name : properties.getMemberNames())
        add_fields(path + "." + name, properties[name]["description"].asString(), properties[name],
                   parent_required && contains(schema["required"], name), fields);
}

/** Adds members that exist only for some choices of `which`. */
void add_variants(const std::string& path, const Json::Value& schema, std::vector<Field>& fields) {
    const std::string which = discriminator(schema);
    std::map<std::string, std::vector<std::string>> conditions;
    std::map<std::string, const Json::Value*> members;
    std::map<std::string, bool> required;
    for (const Json::Value& variant : schema["oneOf"])
        for (const std::string& name : variant["properties"].getMemberNames()) {
            if (schema["properties"].isMember(name)) continue;
            for (const std::string& choice : choices_of(variant["properties"][which]))
                conditions[name].push_back(choice);
            members[name] = &variant["properties"][name];
            required[name] = contains(variant["required"], name);
        }
    for (const auto& [name, member] : members)
        add_fields(path + "." + name,
                   join_sentences((*member)["description"].asString(),
                                  (required[name] ? "Required with " : "Only with ") + which + " " +
                                      alternatives(conditions[name]) + "."),
                   *member, false, fields);
}

void add_fields(const std::string& path, const std::string& description, const Json::Value& schema,
                bool required, std::vector<Field>& fields) {
    if (!schema.isMember("properties")) {
        fields.push_back({path, description, &schema, required});
        return;
    }
    add_members(path, schema, required, fields);
    add_variants(path, schema, fields);
}

template <typename T>
bool parse_number(const std::string& text, T& value) {
    auto [end, err] = std::from_chars(text.data(), text.data() + text.size(), value);
    return err == std::errc() && end == text.data() + text.size();
}

Json::Value integer_of(const Field& field, const Json::Value& schema, const std::string& text) {
    const Json::Value& minimum = schema["minimum"];
    const Json::Value& maximum = schema["maximum"];
    const uint64_t least = std::max(field.least, minimum.isUInt64() ? minimum.asUInt64() : 0);
    const uint64_t most = std::min(field.most, maximum.isUInt64() ? maximum.asUInt64() : UINT64_MAX);
    uint64_t value = 0;
    if (!parse_number(text, value) || value < least || value > most)
        throw Usage("'" + field.path + "' " + range_complaint(least, most, text));
    return Json::UInt64(value);
}

Json::Value choice_of(const Field& field, const Json::Value& schema, const std::string& text) {
    std::vector<std::string> choices = choices_of(schema);
    if (std::find(choices.begin(), choices.end(), text) == choices.end())
        throw Usage("'" + field.path + "' " + choice_complaint(choices, text));
    return text;
}

bool has_type(const Json::Value& value, const std::string& type) {
    if (type == "integer") return value.isIntegral();
    if (type == "number") return value.isNumeric();
    if (type == "boolean") return value.isBool();
    if (type == "array") return value.isArray();
    if (type == "object") return value.isObject();
    if (type == "string") return value.isString();
    return true;
}

[[noreturn]] void fail_missing(const std::string& path, const Json::Value& schema) {
    std::string choices = join(choices_of(schema), ", ");
    throw Usage("'" + path + "' is missing" + (choices.empty() ? "" : ": " + choices));
}

void require_members(const std::string& path, const Json::Value& schema, const Json::Value& variant,
                     const Json::Value& value) {
    for (const Json::Value& required : variant["required"]) {
        std::string name = required.asString();
        if (value.isMember(name)) continue;
        const Json::Value& own = variant["properties"][name];
        fail_missing(path + "." + name, own.isNull() ? schema["properties"][name] : own);
    }
}

/** Checks the members that an object must have, including those of the chosen variant. */
void check_object(const std::string& path, const Json::Value& schema, const Json::Value& value) {
    if (!schema.isMember("properties") || !value.isObject()) return;
    require_members(path, schema, schema, value);
    std::string which = discriminator(schema);
    for (const Json::Value& variant : schema["oneOf"])
        if (contains(variant["properties"][which]["enum"], value[which]))
            require_members(path, schema, variant, value);
}

/** The only value that a choice can have given the other parameters; null if there are several. */
Json::Value implied(const Method& method, const Parameter& choice, const Json::Value& params) {
    const Json::Value& schema = *choice.schema;
    if (schema["type"] == "boolean") return false;
    if (schema["enum"].size() == 1) return schema["enum"][0];
    for (const Parameter& other : method.parameters) {
        const Json::Value& values = (*other.required_when)[choice.name];
        if (params.isMember(other.name) && values.size() == 1) return values[0];
    }
    return Json::Value();
}

}  // namespace

std::vector<Field> fields_of(const Method& method) {
    std::vector<Field> fields;
    for (const Parameter& parameter : method.parameters)
        add_fields(parameter.name, parameter.description, MethodTable::get().resolve(*parameter.schema),
                   parameter.required, fields);
    return fields;
}

const Field* find_field(const std::vector<Field>& fields, const std::string& path) {
    auto found = std::find_if(fields.begin(), fields.end(), [&](const Field& f) { return f.path == path; });
    return found == fields.end() ? nullptr : &*found;
}

std::string type_text(const Json::Value& schema) {
    if (schema.isMember("enum")) return join(choices_of(schema), "|");
    std::string type = schema["type"].isString() ? schema["type"].asString() : "any";
    if (type == "array") return "array of " + type_text(schema["items"]);
    for (const auto& integer : INTEGERS)
        if (type == "integer" && schema["maximum"].isUInt64() &&
            schema["maximum"].asUInt64() == integer.maximum)
            return integer.name;
    return type;
}

std::vector<std::string> choices_of(const Json::Value& schema) {
    return texts_of(schema["enum"]);
}

std::string alternatives(const std::vector<std::string>& words) {
    std::string out;
    for (size_t i = 0; i < words.size(); ++i)
        out += (i == 0 ? "" : i + 1 < words.size() ? ", " : " or ") + words[i];
    return out;
}

Json::Value value_of(const Field& field, const std::string& text) {
    const Json::Value& schema = *field.schema;
    if (schema.isMember("enum")) return choice_of(field, schema, text);
    const std::string type = schema["type"].asString();
    if (type == "string") return text;
    if (type == "integer") return integer_of(field, schema, text);
    Json::Value value = guess_value(&schema, text);
    if (!has_type(value, type))
        throw Usage("'" + field.path + "' must be " +
                    (type == "boolean" ? "true or false" : "a JSON " + type) + ", not '" + text + "'");
    return value;
}

Json::Value guess_value(const Json::Value* schema, const std::string& text) {
    Json::Value value;
    if (!parse_whole(text, value)) return text;
    if (schema == nullptr || !(*schema)["type"].isString()) return value;
    return has_type(value, (*schema)["type"].asString()) ? value : Json::Value(text);
}

void put(Json::Value& params, const std::string& path, const Json::Value& value) {
    Json::Value* at = &params;
    for (size_t begin = 0; begin != std::string::npos;) {
        size_t end = path.find('.', begin);
        if (!at->isNull() && !at->isObject())
            throw Usage("'" + path + "': '" + path.substr(0, begin - 1) + "' is no object");
        at = &(*at)[path.substr(begin, end == std::string::npos ? end : end - begin)];
        begin = end == std::string::npos ? end : end + 1;
    }
    *at = value;
}

bool is_needed(const Parameter& parameter, const Json::Value& params) {
    const Json::Value& when = *parameter.required_when;
    if (parameter.required || when.empty()) return parameter.required;
    const std::vector<std::string> names = when.getMemberNames();
    return std::all_of(names.begin(), names.end(),
                       [&](const std::string& name) { return contains(when[name], params[name]); });
}

void complete(const Method& method, Json::Value& params) {
    if (params.isNull()) params = Json::objectValue;
    for (const Parameter& parameter : method.parameters) {
        const Json::Value& schema = MethodTable::get().resolve(*parameter.schema);
        if (!params.isMember(parameter.name)) {
            if (!is_needed(parameter, params)) continue;
            Json::Value value = implied(method, parameter, params);
            if (value.isNull() && schema.isMember("properties")) value = Json::objectValue;
            if (value.isNull()) fail_missing(parameter.name, schema);
            params[parameter.name] = value;
        }
        check_object(parameter.name, schema, params[parameter.name]);
    }
}

}  // namespace brumectl
