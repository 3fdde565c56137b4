#pragma once
// The parent's end of the pipe that is the child's stderr. Whatever the child prints, and however fast, one
// poll is bounded in time and memory: the parent has to get back to supervising.

#include <cstddef>
#include <cstdint>
#include <string>

#include "utils/unique_fd.h"

namespace corvo::server {

class StderrReader {
 public:
    /** What one poll takes at most, give or take one read; more stays in the pipe and waits. */
    static constexpr size_t MAX_BYTES = size_t{64} * 1024;

    StderrReader() = default;
    /** Takes the read end and makes it non-blocking; a failure of that is only logged. */
    explicit StderrReader(UniqueFd read_end);

    /** Nothing more will come. */
    bool at_end() const { return m_at_end; }

    /**
     * Waits up to `wait_ms` for text and sends what came to the log as one message. A signal ends the wait.
     * 0: the pipe is open, more may come; 1: end of file, a failed read, or nothing came.
     */
    int read_stderr_from_child(uint64_t wait_ms);

 private:
    int read_stderr_till_comp(std::string& out);

    UniqueFd m_fd;
    bool m_at_end = false;
};

}  // namespace corvo::server
