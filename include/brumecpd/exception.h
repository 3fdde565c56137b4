#pragma once
// The error type of the daemon: thrown by value, caught by reference. What an operation of the operating
// system failed with follows its own text.

#include <stdexcept>
#include <string>

namespace corvo {

class [[gnu::visibility("default")]] Exception : public std::runtime_error {
 public:
    explicit Exception(const std::string& message);
    /** `what()` is the message, " : " and the system's description of `err`, an errno value. */
    Exception(const std::string& message, int err);
};

}  // namespace corvo
