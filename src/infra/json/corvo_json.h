#pragma once
// The only place that parses and writes JSON text. Text from outside may be nested too deeply for the reader,
// which then throws its own kind of exception; here that becomes an ordinary parse error.

#include <json/value.h>

#include <string>
#include <string_view>

namespace corvo::json {

/**
 * Parses one value. Comments are accepted; text after the first value is ignored. On failure, returns
 * false, leaves `out` unchanged and sets `error` to the reader's messages, one or more lines that each end
 * in a newline.
 */
bool parse(const std::string& text, Json::Value& out, std::string* error = nullptr);
/** The same for text in the caller's memory. */
bool parse(const char* begin, const char* end, Json::Value& out, std::string* error = nullptr);
/** One line without blanks, members in ascending order, with a newline at the end. */
std::string write_line(const Json::Value& value);
/** The same without the newline. */
std::string write(const Json::Value& value);
/** The same, appended to `out`. */
void append(std::string& out, const Json::Value& value);
/** Appends a string's text, quoted and escaped; for callers that write an object without building a value. */
void append_string(std::string& out, std::string_view text);
/** Indented, for people. */
std::string write_styled(const Json::Value& value);

}  // namespace corvo::json
