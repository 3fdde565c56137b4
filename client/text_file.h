#pragma once
// A whole file, or what comes in on standard input.

#include <cstddef>
#include <string>

namespace brumectl::check {

constexpr size_t MAX_TEXT_BYTES = 16UL * 1024 * 1024;

/** "-" is standard input. @throws Failure for what can't be read or has more bytes; Interrupted */
std::string read_text(const std::string& path);

}  // namespace brumectl::check
