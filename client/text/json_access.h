#pragma once
// Reads JSON from others: anything absent or of another type becomes an empty value, never an exception.

#include <json/value.h>

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

namespace brumectl {

/** The value at the end of the path of members; null if the path ends early. */
const Json::Value& member_of(const Json::Value& value, std::initializer_list<const char*> path);
const Json::Value& member_of(const Json::Value& value, const char* name);
/** For a temporary, such as a call's result: returns a copy. */
Json::Value member_of(Json::Value&& value, std::initializer_list<const char*> path);
Json::Value member_of(Json::Value&& value, const char* name);
/**
 * Like the JSON reader's `parse`, except that text after the first value is an error here rather than
 * ignored: "10.0.0.1" isn't the number 10.0.
 */
bool parse_whole(const std::string& text, Json::Value& out, std::string* error = nullptr);
/** A string's text; empty for anything else. */
std::string string_of(const Json::Value& value);
/** The texts in an array. */
std::vector<std::string> texts_of(const Json::Value& array);
/** 0 unless it is a number from 0 to 2^64-1; fractions are cut off. */
uint64_t count_of(const Json::Value& value);

}  // namespace brumectl
