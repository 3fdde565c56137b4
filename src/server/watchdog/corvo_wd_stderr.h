#pragma once
// The parent's end of the pipe that is the child's stderr. Whatever the child prints, and however fast, one
// poll is bounded in time and memory: the parent must get back to supervising.

#include <cstddef>
#include <cstdint>
#include <string>

#include "utils/unique_fd.h"

namespace corvo::server {

class StderrReader {
 public:
    /** The most that one poll reads, give or take one read; the rest stays in the pipe. */
    static constexpr size_t MAX_BYTES = size_t{64} * 1024;

    StderrReader() = default;
    /** Takes the read end and makes it non-blocking; if that fails, it is only logged. */
    explicit StderrReader(UniqueFd read_end);

    /** Nothing more will arrive. */
    bool at_end() const { return m_at_end; }

    /**
     * Waits up to `wait_ms` for text and logs what arrived as one message. A signal ends the wait. Returns 0
     * if the pipe is open and more may come; 1 at end of file, after a failed read, or if nothing arrived.
     */
    int read_stderr_from_child(uint64_t wait_ms);

 private:
    int read_stderr_till_comp(std::string& out);

    UniqueFd m_fd;
    bool m_at_end = false;
};

}  // namespace corvo::server
