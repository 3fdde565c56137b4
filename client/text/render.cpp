#include "client/text/render.h"

#include <algorithm>
#include <set>

#include "client/text/fields.h"
#include "client/text/json_access.h"
#include "client/text/method_table.h"
#include "infra/json/corvo_json.h"

namespace brumectl {

namespace {

/** Deeper values are shown as JSON, as indented text stops helping there. */
constexpr int MAX_DEPTH = 6;
constexpr size_t MAX_COLUMNS = 12;

/** How to show a number whose description starts with these words. The first match counts. */
constexpr struct {
    const char* words;
    std::string (*text)(uint64_t);
} UNITS[] = {
    {"seconds of the epoch", [](uint64_t n) { return time_text(static_cast<int64_t>(n)); }},
    {"seconds", [](uint64_t n) { return duration_text(n); }},
    {"milliseconds", [](uint64_t n) { return count_text(n) + " ms"; }},
    {"bytes", [](uint64_t n) { return bytes_text(n); }},
    {"MiB", [](uint64_t n) { return count_text(n) + " MiB"; }},
};

const Json::Value* null_or(const Json::Value& schema) {
    return schema.isNull() ? nullptr : &schema;
}

bool fits(const Json::Value& schema, const Json::Value& value) {
    const std::string type = schema["type"].isString() ? schema["type"].asString() : "";
    if (type == "object" && !value.isObject()) return false;
    if (type == "array" && !value.isArray()) return false;
    if (type == "string" && !value.isString()) return false;
    if (!value.isObject()) return true;
    for (const Json::Value& name : schema["required"])
        if (!value.isMember(name.asString())) return false;
    bool closed = schema["additionalProperties"].isBool() && !schema["additionalProperties"].asBool();
    for (const std::string& name : value.getMemberNames())
        if (closed && !schema["properties"].isMember(name)) return false;
    return true;
}

/** The schema of this value: the first of several variants that fits. */
const Json::Value* settle(const Json::Value* schema, const Json::Value& value) {
    if (schema == nullptr) return nullptr;
    const Json::Value& resolved = MethodTable::get().resolve(*schema);
    for (const Json::Value& variant : resolved["oneOf"])
        if (fits(variant, value)) return &variant;
    return &resolved;
}

const Json::Value* schema_of_member(const Json::Value* schema, const std::string& name) {
    if (schema == nullptr || !schema->isObject()) return nullptr;
    return null_or((*schema)["properties"][name]);
}

bool is_simple(const Json::Value& value) {
    return !value.isObject() && !value.isArray();
}

bool all_of_kind(const Json::Value& array, bool (*is_kind)(const Json::Value&)) {
    return std::all_of(array.begin(), array.end(), is_kind);
}

bool is_flat_object(const Json::Value& value) {
    return value.isObject() && !value.empty();
}

void indent(std::string& out, const std::string& text, int columns) {
    for (size_t begin = 0; begin < text.size();) {
        size_t end = std::min(text.find('\n', begin), text.size() - 1) + 1;
        out.append(static_cast<size_t>(columns), ' ').append(text, begin, end - begin);
        begin = end;
    }
}

std::string render_at(const Terminal& terminal, const Json::Value& value, const Json::Value* schema,
                      int depth);

std::string table_of(const Terminal& terminal, const Json::Value& array, const Json::Value* schema) {
    std::set<std::string> names;
    for (const Json::Value& row : array)
        for (const std::string& name : row.getMemberNames())
            names.insert(name);
    if (names.size() > MAX_COLUMNS) return "";
    std::vector<std::string> head;
    head.reserve(names.size());
    for (const std::string& name : names)
        head.push_back(harmless(name));
    TextTable table(head);
    for (const Json::Value& row : array) {
        std::vector<TextTable::Cell> cells;
        cells.reserve(names.size());
        for (const std::string& name : names)
            cells.push_back({row.isMember(name) ? line_of(row[name], schema_of_member(schema, name)) : "",
                             row[name].isNumeric()});
        table.add(std::move(cells));
    }
    return table.text(terminal);
}

std::string array_text(const Terminal& terminal, const Json::Value& array, const Json::Value* schema,
                       int depth) {
    const Json::Value* items = schema == nullptr ? nullptr : null_or((*schema)["items"]);
    if (array.empty()) return "none\n";
    if (all_of_kind(array, is_flat_object)) {
        std::string table = table_of(terminal, array, items);
        if (!table.empty()) return table;
    }
    std::string out;
    for (const Json::Value& item : array) {
        bool plain = is_simple(item) || depth >= MAX_DEPTH;
        out += plain ? line_of(item, items) + "\n" : render_at(terminal, item, items, depth + 1) + "\n";
    }
    return out;
}

std::string object_text(const Terminal& terminal, const Json::Value& object, const Json::Value* schema,
                        int depth) {
    std::string out;
    std::vector<std::pair<std::string, std::string>> lines;
    auto flush = [&] {
        out += key_lines(terminal, lines);
        lines.clear();
    };
    for (const std::string& name : object.getMemberNames()) {
        const Json::Value& value = object[name];
        const Json::Value* inner = settle(schema_of_member(schema, name), value);
        if (value.isArray() && all_of_kind(value, is_simple)) {
            lines.emplace_back(harmless(name), list_of(value));
        } else if (is_simple(value) || value.empty() || depth >= MAX_DEPTH) {
            lines.emplace_back(harmless(name),
                               value.isObject() && value.empty() ? "-" : line_of(value, inner));
        } else {
            flush();
            out += terminal.paint(Terminal::BOLD, harmless(name) + ":") + "\n";
            indent(out, render_at(terminal, value, inner, depth + 1), 2);
        }
    }
    flush();
    return out;
}

std::string render_at(const Terminal& terminal, const Json::Value& value, const Json::Value* schema,
                      int depth) {
    const Json::Value* own = settle(schema, value);
    if (value.isArray()) return array_text(terminal, value, own, depth);
    if (value.isObject()) return object_text(terminal, value, own, depth);
    if (value.isString()) return harmless(value.asString(), true) + "\n";
    return line_of(value, own) + "\n";
}

}  // namespace

std::string line_of(const Json::Value& value, const Json::Value* schema) {
    if (value.isNull()) return "-";
    if (value.isString()) return harmless(value.asString());
    if (value.isBool()) return value.asBool() ? "yes" : "no";
    if (value.isUInt64() && schema != nullptr && (*schema)["description"].isString()) {
        const std::string description = (*schema)["description"].asString();
        for (const auto& unit : UNITS)
            if (description.rfind(unit.words, 0) == 0) return unit.text(value.asUInt64());
    }
    return harmless(corvo::json::write(value));
}

std::string render(const Terminal& terminal, const Json::Value& value, const Json::Value* schema) {
    if (value.isNull() || (value.isObject() && value.empty())) return "ok\n";
    std::string text = render_at(terminal, value, schema, 0);
    if (text.size() > 1 && text[text.size() - 2] == '\n') text.pop_back();
    return text;
}

std::string text_of(const Json::Value& value) {
    return value.isString() ? harmless(value.asString()) : "";
}

std::string list_of(const Json::Value& array) {
    std::string out;
    if (array.isArray())
        for (const Json::Value& item : array)
            out += (out.empty() ? "" : ", ") + line_of(item);
    return out.empty() ? "-" : out;
}

std::string key_lines(const Terminal& terminal,
                      const std::vector<std::pair<std::string, std::string>>& lines) {
    size_t width = 0;
    for (const auto& [key, value] : lines)
        width = std::max(width, std::min(columns(key), MAX_ALIGNED));
    std::string out;
    for (const auto& [key, value] : lines)
        out += terminal.paint(Terminal::DIM, padded(key + ":  ", width + 3)) + value + "\n";
    return out;
}

}  // namespace brumectl
