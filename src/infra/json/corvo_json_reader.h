#pragma once
// Reads JSON text as programs typically send it, several times faster than the library's reader: strings
// without escapes, whole numbers with few digits, no comments, no duplicate names, little nesting. It reports
// anything else, which is then left to the library's reader. What both can read has identical results, down
// to the offsets.
//
// It is worth its lines, with our writer and the short way of a request in corvo_jsonrpc_v2. Measured was the
// CPU time of a request over a Unix socket, as a share of what the least server on the library alone takes:
// 0.77 for `ping`, 0.66 for `status`, 0.20 for an answer of 8 KB. With the library's reader, writer and
// values it was 1.19 to 1.43, 0.94 to 1.05 and 0.99 to 1.03.

#include <json/value.h>

#include <string_view>

namespace corvo::json {

class PlainReader {
 public:
    /** The text must outlive the reader. Offsets of values are relative to `begin`. */
    PlainReader(const char* begin, const char* end) : m_begin(begin), m_at(begin), m_end(end) {}

    /**
     * Reads the next value into `out`, which must be null. On false, the text isn't for this reader, and the
     * contents of `out` are undefined.
     */
    bool read(Json::Value& out) { return read(out, 0); }
    /**
     * For callers that parse an object's members themselves: call this first, then the next three for
     * each member.
     */
    bool begin_object();
    /** Also skips the colon. */
    bool member_name(std::string_view& name);
    /** Reads the next value, which must be a string, without copying it. (`read` accepts any value.) */
    bool read_string(std::string_view& text);
    /** `more` is set if another member follows; otherwise the object has ended. */
    bool end_of_member(bool& more);

 private:
    bool read(Json::Value& out, int depth);
    bool read_object(Json::Value& out, int depth);
    bool read_array(Json::Value& out, int depth);
    bool read_number(Json::Value& out);
    bool read_word(std::string_view word, Json::Value&& value, Json::Value& out);
    /** Returns the next non-blank character without consuming it; NUL at the end. */
    char peek();
    bool take(char c);
    /** After an element: consumes the comma, or `close`. */
    bool next_element(char close, bool& more);

    const char* m_begin;
    const char* m_at;
    const char* m_end;
};

}  // namespace corvo::json
