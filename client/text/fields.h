#pragma once
// What a method's parameters are made of, down to the members of those that are objects, and how the text of
// each becomes the value that the method takes.

#include <json/value.h>

#include <cstdint>
#include <string>
#include <vector>

#include "client/text/method_table.h"

namespace brumectl {

/** A parameter, or a member of one that is an object with known members. */
struct Field {
    std::string path;         ///< dotted: "resources.max_flows"
    std::string description;  ///< with the conditions under which it is read or required
    const Json::Value* schema = nullptr;
    bool required = false;
    uint64_t least = 0;  ///< of a whole number: no less is meant, whatever the schema allows
    uint64_t most = UINT64_MAX;

    /** The last part of the path. */
    std::string leaf() const { return path.substr(path.rfind('.') + 1); }
};

/** In the order of the table. An object with known members is replaced by them. */
std::vector<Field> fields_of(const Method& method);
/** Null if there's none. */
const Field* find_field(const std::vector<Field>& fields, const std::string& path);
/** "uint32", "string", "array of uint32", "get|set|reset". */
std::string type_text(const Json::Value& schema);
/** The words that a value can be; empty if it is no enumeration. */
std::vector<std::string> choices_of(const Json::Value& schema);

/** "a, b or c". */
std::string alternatives(const std::vector<std::string>& words);

/** The value that `text` stands for. @throws Usage, naming the field, for a text that the schema refuses */
Json::Value value_of(const Field& field, const std::string& text);
/** The same without judging: JSON where it is JSON of the schema's type (null: any), else a string. */
Json::Value guess_value(const Json::Value* schema, const std::string& text);
/** Sets the member at a dotted path, making the objects on the way. @throws Usage if one is no object */
void put(Json::Value& params, const std::string& path, const Json::Value& value);
/** Required, be it only beside what else `params`, an object, holds. */
bool is_needed(const Parameter& parameter, const Json::Value& params);
/**
 * Adds what the rest implies: choices that leave no choice, flags that weren't given.
 * @throws Usage for what is still missing
 */
void complete(const Method& method, Json::Value& params);

}  // namespace brumectl
