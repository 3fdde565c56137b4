// Writes a value's text exactly as Json::FastWriter does, because clients compare texts. That writer copies
// every piece several times and looks up each member by name again; this one appends to a single buffer.

#include <json/value.h>
#include <json/writer.h>

#include <charconv>
#include <cstdint>
#include <cstring>

#include "infra/json/corvo_json.h"

namespace corvo::json {

namespace {

constexpr size_t USUAL_SIZE = 500;  ///< enough bytes for most results
constexpr char NOT_PLAIN = '?';     ///< left to the library's own writer

/** Returns 0 for a character that needs no escape, NOT_PLAIN, or else the letter after the backslash. */
constexpr char escape_of(char c) {
    switch (c) {
        case '"':
        case '\\':
            return c;
        case '\b':
            return 'b';
        case '\f':
            return 'f';
        case '\n':
            return 'n';
        case '\r':
            return 'r';
        case '\t':
            return 't';
        default:
            return c >= 0x20 && c < 0x7f ? 0 : NOT_PLAIN;
    }
}

struct Escapes {
    char of[256] = {};
    constexpr Escapes() {
        for (int c = 0; c < 256; ++c)
            of[c] = escape_of(static_cast<char>(c));
    }
};

constexpr Escapes ESCAPES;

/** `byte` repeated eight times. */
constexpr uint64_t each(uint64_t byte) {
    return byte * 0x0101010101010101U;
}

/** Nonzero if one of the bytes is 0; exact as long as no byte has its highest bit set. */
constexpr uint64_t zero_bytes(uint64_t word) {
    return (word - each(0x01)) & ~word;
}

/** Position of the first character at or after `at` that needs an escape or the library. */
size_t skip_plain(std::string_view text, size_t at) {
    // Eight at a time: control characters, quotation marks, backslashes, DEL and non-ASCII bytes all set the
    // highest bit.
    for (uint64_t word = 0; at + sizeof word <= text.size(); at += sizeof word) {
        std::memcpy(&word, text.data() + at, sizeof word);
        const uint64_t special = word | (word - each(' ')) | zero_bytes(word ^ each('"')) |
                                 zero_bytes(word ^ each('\\')) | zero_bytes(word ^ each(0x7f));
        if (special & each(0x80)) break;
    }
    while (at < text.size() && ESCAPES.of[static_cast<unsigned char>(text[at])] == 0)
        ++at;
    return at;
}

/** For control characters and everything beyond ASCII, which may not be well-formed. */
void append_by_library(std::string& out, std::string_view text) {
    Json::FastWriter writer;
    writer.omitEndingLineFeed();
    out += writer.write(Json::Value(text.data(), text.data() + text.size()));
}

template <class Number>
void append_number(std::string& out, Number number) {
    char digits[24];
    out.append(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
}

void append_array(std::string& out, const Json::Value& array) {
    char separator = '[';
    for (const Json::Value& element : array) {
        out += separator;
        append(out, element);
        separator = ',';
    }
    if (separator == '[') out += separator;
    out += ']';
}

void append_object(std::string& out, const Json::Value& object) {
    char separator = '{';
    for (auto member = object.begin(); member != object.end(); ++member) {
        out += separator;
        const char* end = nullptr;
        const char* name = member.memberName(&end);
        append_string(out, {name, static_cast<size_t>(end - name)});
        out += ':';
        append(out, *member);
        separator = ',';
    }
    if (separator == '{') out += separator;
    out += '}';
}

}  // namespace

void append_string(std::string& out, std::string_view text) {
    const size_t start = out.size();
    out += '"';
    size_t done = 0;
    for (size_t i = skip_plain(text, 0); i < text.size(); i = skip_plain(text, done)) {
        const char escape = ESCAPES.of[static_cast<unsigned char>(text[i])];
        if (escape == NOT_PLAIN) {
            out.resize(start);
            return append_by_library(out, text);
        }
        out.append(text, done, i - done);
        out += '\\';
        out += escape;
        done = i + 1;
    }
    out.append(text, done);
    out += '"';
}

void append(std::string& out, const Json::Value& value) {
    switch (value.type()) {
        case Json::nullValue:
            out += "null";
            return;
        case Json::intValue:
            return append_number(out, value.asLargestInt());
        case Json::uintValue:
            return append_number(out, value.asLargestUInt());
        case Json::realValue:
            out += Json::valueToString(value.asDouble());
            return;
        case Json::stringValue: {
            const char* begin = nullptr;
            const char* end = nullptr;
            value.getString(&begin, &end);
            return append_string(out, {begin, static_cast<size_t>(end - begin)});
        }
        case Json::booleanValue:
            out += value.asBool() ? "true" : "false";
            return;
        case Json::arrayValue:
            return append_array(out, value);
        case Json::objectValue:
            return append_object(out, value);
    }
}

std::string write(const Json::Value& value) {
    std::string text;
    append(text, value);
    return text;
}

std::string write_line(const Json::Value& value) {
    std::string text;
    text.reserve(USUAL_SIZE);
    append(text, value);
    text += '\n';
    return text;
}

}  // namespace corvo::json
