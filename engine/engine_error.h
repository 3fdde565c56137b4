#pragma once
// The exception of the engine's own code. Its text reaches the caller's `err` unchanged.

#include <cstring>
#include <stdexcept>
#include <string>

namespace corvo::engine {

class Error : public std::runtime_error {
 public:
    using std::runtime_error::runtime_error;
};

/** Quotes a caller's word for an error text; long words are cut at a character boundary. */
inline std::string quoted(const std::string& word) {
    constexpr size_t MAX = 80;
    if (word.size() <= MAX) return "'" + word + "'";
    size_t end = MAX;
    while (end > 0 && (static_cast<unsigned char>(word[end]) & 0xc0) == 0x80)
        end--;
    return "'" + word.substr(0, end) + "...'";
}

/** A colon followed by the system's description of `error`. */
inline std::string reason(int error) {
    return std::string(": ") + std::strerror(error);
}

}  // namespace corvo::engine
