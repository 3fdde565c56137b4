#include "infra/json/corvo_json_reader.h"

#include <cstddef>
#include <cstring>
#include <utility>

namespace corvo::json {

namespace {

constexpr int MAX_DEPTH = 32;
/** Few enough digits for every integer type that the library might choose, so it chooses int. */
constexpr int MAX_DIGITS = 9;

bool is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

}  // namespace

char PlainReader::peek() {
    while (m_at != m_end && is_blank(*m_at))
        ++m_at;
    return m_at == m_end ? '\0' : *m_at;
}

bool PlainReader::take(char c) {
    if (peek() != c || m_at == m_end) return false;
    ++m_at;
    return true;
}

bool PlainReader::begin_object() {
    return take('{');
}

bool PlainReader::member_name(std::string_view& name) {
    return read_string(name) && take(':');
}

bool PlainReader::end_of_member(bool& more) {
    return next_element('}', more);
}

bool PlainReader::next_element(char close, bool& more) {
    more = take(',');
    return more || take(close);
}

bool PlainReader::read_string(std::string_view& text) {
    if (!take('"')) return false;
    const auto* quote = static_cast<const char*>(std::memchr(m_at, '"', static_cast<size_t>(m_end - m_at)));
    if (!quote) return false;
    text = {m_at, static_cast<size_t>(quote - m_at)};
    m_at = quote + 1;
    return text.find('\\') == text.npos;
}

bool PlainReader::read(Json::Value& out, int depth) {
    if (depth > MAX_DEPTH) return false;
    const char first = peek();
    const ptrdiff_t start = m_at - m_begin;
    bool done = false;
    switch (first) {
        case '{':
            done = read_object(out, depth);
            break;
        case '[':
            done = read_array(out, depth);
            break;
        case '"': {
            std::string_view text;
            done = read_string(text);
            if (done) out = Json::Value(text.data(), text.data() + text.size());
            break;
        }
        case 't':
            done = read_word("true", true, out);
            break;
        case 'f':
            done = read_word("false", false, out);
            break;
        case 'n':
            done = read_word("null", Json::Value(), out);
            break;
        default:
            done = read_number(out);
    }
    out.setOffsetStart(start);
    out.setOffsetLimit(m_at - m_begin);
    return done;
}

bool PlainReader::read_object(Json::Value& out, int depth) {
    out = Json::Value(Json::objectValue);
    Json::ArrayIndex members = 0;
    ++m_at;
    if (take('}')) return true;
    for (bool more = true; more; ++members) {
        std::string_view name;
        if (!member_name(name)) return false;
        if (!read(*out.demand(name.data(), name.data() + name.size()), depth + 1) || !end_of_member(more))
            return false;
    }
    return out.size() == members;  // otherwise a name appeared twice
}

bool PlainReader::read_array(Json::Value& out, int depth) {
    out = Json::Value(Json::arrayValue);
    ++m_at;
    if (take(']')) return true;
    for (bool more = true; more;)
        if (!read(out[out.size()], depth + 1) || !next_element(']', more)) return false;
    return true;
}

bool PlainReader::read_number(Json::Value& out) {
    const bool negative = m_at != m_end && *m_at == '-';
    const char* digits = negative ? m_at + 1 : m_at;
    const char* at = digits;
    int number = 0;
    for (; at != m_end && is_digit(*at) && at - digits < MAX_DIGITS; ++at)
        number = number * 10 + (*at - '0');
    const bool leading_zero = at != digits && *digits == '0' && (negative || at - digits > 1);
    // If a letter, another part of a number or the end follows, the library decides what that means.
    const bool ends = at != m_end && (is_blank(*at) || *at == ',' || *at == '}' || *at == ']');
    if (at == digits || leading_zero || !ends) return false;
    m_at = at;
    out = negative ? -number : number;
    return true;
}

bool PlainReader::read_word(std::string_view word, Json::Value&& value, Json::Value& out) {
    if (static_cast<size_t>(m_end - m_at) < word.size() || std::memcmp(m_at, word.data(), word.size()) != 0)
        return false;
    m_at += word.size();
    out = std::move(value);
    return true;
}

}  // namespace corvo::json
