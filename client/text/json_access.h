#pragma once
// Reading JSON that isn't ours: what is absent or of another type is an empty value, never an exception.

#include <json/value.h>

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

namespace brumectl {

/** What lies at the end of the path of members; null where the path ends early. */
const Json::Value& member_of(const Json::Value& value, std::initializer_list<const char*> path);
const Json::Value& member_of(const Json::Value& value, const char* name);
/** Of a value that is about to go, such as a call's answer: a copy. */
Json::Value member_of(Json::Value&& value, std::initializer_list<const char*> path);
Json::Value member_of(Json::Value&& value, const char* name);
/**
 * As the JSON reader's `parse`, which leaves what stands behind the first value unread: here that is a fault,
 * for "10.0.0.1" isn't the number 10.0.
 */
bool parse_whole(const std::string& text, Json::Value& out, std::string* error = nullptr);
/** A string's own text; empty for everything else. */
std::string string_of(const Json::Value& value);
/** The texts in an array. */
std::vector<std::string> texts_of(const Json::Value& array);
/** 0 for what is no number from 0 to 2^64-1; parts of one are cut. */
uint64_t count_of(const Json::Value& value);

}  // namespace brumectl
