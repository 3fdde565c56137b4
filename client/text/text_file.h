#pragma once
// Reads a whole file, or all of standard input.

#include <cstddef>
#include <string>

namespace brumectl {

/** "-" is standard input. Throws Failure if it can't be read or has more than `max_bytes`; Interrupted. */
std::string read_text(const std::string& path, size_t max_bytes);
/** The file's name for messages: "<stdin>" for "-". */
std::string shown_name(const std::string& path);

}  // namespace brumectl
