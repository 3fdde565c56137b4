#pragma once
// The stack in a report: a line for each frame, "object(function+0x…)[0x…]", as `backtrace_symbols_fd` has
// it. For signal context.

#include "server/watchdog/corvo_stack.h"

namespace corvo::server {

class FrameLines : public StackVisitor {
 public:
    static constexpr int MAX_FRAMES = 100;

    explicit FrameLines(int fd) : m_fd(fd) {}

    bool visit(const StackFrame& frame) override;

 private:
    /** For functions that their object doesn't export. False: nothing was written. */
    bool write_by_file(const StackFrame& frame) const;

    int m_fd;
    int m_count = 0;
};

}  // namespace corvo::server
