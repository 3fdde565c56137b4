#pragma once
// Where the shell's lines come from when it isn't at a terminal.

#include <cstddef>
#include <string>

namespace brumectl {

class LineSource {
 public:
    static constexpr size_t MAX_LINE_BYTES = size_t{1024} * 1024;

    /** The caller keeps ownership of `fd`. */
    explicit LineSource(int fd) : m_fd(fd) {}

    /** The next line without its line feed; false at the end. Throws Failure, Interrupted. */
    bool next(std::string& line);

 private:
    bool fill();

    int m_fd;
    bool m_end = false;
    std::string m_text;
};

}  // namespace brumectl
