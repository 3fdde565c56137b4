#pragma once
// Writes a stack into a report: a line per frame, "object(function+0x…)[0x…]", the format of
// `backtrace_symbols_fd`. Usable in signal context.

#include "server/watchdog/corvo_stack.h"

namespace corvo::server {

class FrameLines : public StackVisitor {
 public:
    static constexpr int MAX_FRAMES = 100;

    explicit FrameLines(int fd) : m_fd(fd) {}

    bool visit(const StackFrame& frame) override;

 private:
    /** For functions that their object doesn't export. Returns false if it has written nothing. */
    bool write_by_file(const StackFrame& frame) const;

    int m_fd;
    int m_count = 0;
};

}  // namespace corvo::server
