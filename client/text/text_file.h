#pragma once
// A whole file, or what comes in on standard input.

#include <cstddef>
#include <string>

namespace brumectl {

/** "-" is standard input. @throws Failure for what can't be read or has more bytes; Interrupted */
std::string read_text(const std::string& path, size_t max_bytes);
/** The file's name for messages: "<stdin>" for "-". */
std::string shown_name(const std::string& path);

}  // namespace brumectl
