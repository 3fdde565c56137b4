#pragma once
// The only place that parses and writes JSON text. Outside text may nest too deeply for the reader, which
// then throws an exception of its own family: here that is a parse error like any other.

#include <json/value.h>

#include <string>

namespace corvo::json {

/**
 * Parses one value; comments are accepted, text behind the first value is ignored. False: `out` is as it was
 * and `error` holds the reader's messages, one or more lines that each end in a newline.
 */
bool parse(const std::string& text, Json::Value& out, std::string* error = nullptr);
/** The same from memory that the caller keeps. */
bool parse(const char* begin, const char* end, Json::Value& out, std::string* error = nullptr);
/** One line, no blanks, members in ascending order, one newline at the end. */
std::string write_line(const Json::Value& value);
/** The same without the newline. */
std::string write(const Json::Value& value);
/** The same, behind what `out` holds already. */
void append(std::string& out, const Json::Value& value);
/** Indented, for people. */
std::string write_styled(const Json::Value& value);

}  // namespace corvo::json
