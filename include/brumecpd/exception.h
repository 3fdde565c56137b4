#pragma once
// The daemon's error type: thrown by value, caught by reference. For a failed system call, the system's
// description follows the message.

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
