#pragma once
// The fields of a method's parameters, down to the members of objects, and how a field's text becomes the
// value that the method takes.

#include <json/value.h>

#include <cstdint>
#include <string>
#include <vector>

#include "client/text/method_table.h"

namespace brumectl {

/** A parameter, or a member of one that is an object with known members. */
struct Field {
    std::string path;         ///< dotted: "resources.max_flows"
    std::string description;  ///< including the conditions under which it is read or required
    const Json::Value* schema = nullptr;
    bool required = false;
    uint64_t least = 0;  ///< minimum that makes sense for a whole number, whatever the schema allows
    uint64_t most = UINT64_MAX;

    /** The last part of the path. */
    std::string leaf() const { return path.substr(path.rfind('.') + 1); }
};

/** In the order of the table. An object with known members is replaced by its members. */
std::vector<Field> fields_of(const Method& method);
/** Null if there is none. */
const Field* find_field(const std::vector<Field>& fields, const std::string& path);
/** "uint32", "string", "array of uint32", "get|set|reset". */
std::string type_text(const Json::Value& schema);
/** The allowed words; empty if the value isn't an enumeration. */
std::vector<std::string> choices_of(const Json::Value& schema);

/** "a, b or c". */
std::string alternatives(const std::vector<std::string>& words);

/** Converts `text` to the field's value. Throws Usage, naming the field, if the schema doesn't allow it. */
Json::Value value_of(const Field& field, const std::string& text);
/** The same without checks: JSON if it is JSON of the schema's type (null: any type), else a string. */
Json::Value guess_value(const Json::Value* schema, const std::string& text);
/** Sets the member at a dotted path, creating objects along the way. Throws Usage if one isn't an object. */
void put(Json::Value& params, const std::string& path, const Json::Value& value);
/** Whether it is required, given the other members of `params`, an object. */
bool is_needed(const Parameter& parameter, const Json::Value& params);
/**
 * Adds what the other parameters imply: choices with a single possible value, flags that weren't given.
 * Throws Usage for what is still missing.
 */
void complete(const Method& method, Json::Value& params);

}  // namespace brumectl
