#pragma once
// What the engine's own code throws: the text reaches the caller's `err` as it is.

#include <cstring>
#include <stdexcept>
#include <string>

namespace corvo::engine {

class Error : public std::runtime_error {
 public:
    using std::runtime_error::runtime_error;
};

/** A caller's word for an error text, in quotes; a long one is cut, at the border of a character. */
inline std::string quoted(const std::string& word) {
    constexpr size_t MAX = 80;
    if (word.size() <= MAX) return "'" + word + "'";
    size_t end = MAX;
    while (end > 0 && (static_cast<unsigned char>(word[end]) & 0xc0) == 0x80)
        end--;
    return "'" + word.substr(0, end) + "...'";
}

/** What the system said last, behind a colon. */
inline std::string reason(int error) {
    return std::string(": ") + std::strerror(error);
}

}  // namespace corvo::engine
