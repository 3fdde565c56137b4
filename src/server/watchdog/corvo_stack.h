#pragma once
// The stack of the calling thread, for signal context, too: nothing is allocated or locked.
//
// Tables tell the way from a function to its caller, but many C libraries of 32-bit ARM have none. Where they
// end, what looks like a return address on the rest of the stack is all that is left to tell who called.

#include <cstddef>
#include <cstdint>

namespace corvo::server {

struct StackFrame {
    enum kind_e : uint8_t {
        INTERRUPTED,  ///< the address is the instruction that a signal came before
        CALLER,       ///< it is behind a call, as the tables say
        GUESS,  ///< it is behind a call, and was found in a register or on the stack: perhaps an old one
    };
    uintptr_t address = 0;  ///< on ARM bit 0 marks Thumb code
    kind_e kind = CALLER;
};

class StackVisitor {
 public:
    virtual ~StackVisitor() = default;
    /** False: no more. */
    virtual bool visit(const StackFrame& frame) = 0;
};

/** While it lives, this thread's stack begins where a signal interrupted it; afterwards where it did before.
 */
class InterruptedHere {
 public:
    /** `ucontext` is what a handler with `SA_SIGINFO` is given. */
    explicit InterruptedHere(const void* ucontext);
    InterruptedHere(const InterruptedHere&) = delete;
    InterruptedHere& operator=(const InterruptedHere&) = delete;
    ~InterruptedHere();

 private:
    const void* m_outer;
};

/**
 * Shows the frames, innermost first. Without an interruption that is the caller's own; with one, the handler
 * is passed over. Signal-safe once the unwinder has been used before.
 */
[[gnu::noinline]] void walk_stack(StackVisitor& visitor);

}  // namespace corvo::server
