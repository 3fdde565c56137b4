#include "utils/exception.h"

#include <cstring>

namespace corvo {

Exception::Exception(const std::string& message) : std::runtime_error(message) {}

Exception::Exception(const std::string& message, int err)
    : std::runtime_error(message + " : " + std::strerror(err)) {}

}  // namespace corvo
