#pragma once
// The error type between modules: thrown by value, caught by reference. A text that failed in the operating
// system carries the description of its errno value.

#include <stdexcept>
#include <string>

namespace corvo {

class Exception : public std::runtime_error {
 public:
    explicit Exception(const std::string& message) : std::runtime_error(message) {}
    /** `what()` is the message, " : " and the system's description of `err`, an errno value. */
    Exception(const std::string& message, int err);
};

}  // namespace corvo
