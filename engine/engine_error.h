#pragma once
// What the engine's own code throws: the text reaches the caller's `err` as it is.

#include <stdexcept>

namespace corvo::engine {

class Error : public std::runtime_error {
 public:
    using std::runtime_error::runtime_error;
};

}  // namespace corvo::engine
