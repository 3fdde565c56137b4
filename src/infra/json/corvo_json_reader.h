#pragma once
// Reads JSON text of the kind that programs send, several times faster than the library's reader: strings
// without escapes, whole numbers of few digits, no comments, no name twice, little nesting. It knows what it
// can't do and says so, and then the library's reader decides; what both read is equal to the last offset.

#include <json/value.h>

#include <string_view>

namespace corvo::json {

class PlainReader {
 public:
    /** The text must outlive the reader. Offsets of values count from `begin`. */
    PlainReader(const char* begin, const char* end) : m_begin(begin), m_at(begin), m_end(end) {}

    /** The value that comes next, into a null `out`. False: not for this reader; `out` holds anything. */
    bool read(Json::Value& out) { return read(out, 0); }
    /** For those that take an object with members apart themselves: this, then for each the next three. */
    bool begin_object();
    /** Passes the colon, too. */
    bool member_name(std::string_view& name);
    /** The next value, which must be a string, without copying it. (`read` takes any value.) */
    bool read_string(std::string_view& text);
    /** `more`: another member follows; else the object has ended. */
    bool end_of_member(bool& more);

 private:
    bool read(Json::Value& out, int depth);
    bool read_object(Json::Value& out, int depth);
    bool read_array(Json::Value& out, int depth);
    bool read_number(Json::Value& out);
    bool read_word(std::string_view word, Json::Value&& value, Json::Value& out);
    /** The next character that isn't a blank, which stays; NUL at the end. */
    char peek();
    bool take(char c);
    /** After an element: past the comma, or past `close`. */
    bool next_element(char close, bool& more);

    const char* m_begin;
    const char* m_at;
    const char* m_end;
};

}  // namespace corvo::json
