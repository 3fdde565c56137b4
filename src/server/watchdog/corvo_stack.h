#pragma once
// Walks the stack of the calling thread, also in signal context: allocates nothing and takes no locks.
//
// Unwind tables lead from a function to its caller, but many C libraries of 32-bit ARM have none. Where the
// tables end, the only clues left are words further up the stack that look like return addresses.

#include <cstddef>
#include <cstdint>

namespace corvo::server {

struct StackFrame {
    enum kind_e : uint8_t {
        INTERRUPTED,  ///< the address is the next instruction that would have run
        CALLER,       ///< a return address found by unwind tables
        GUESS,        ///< looks like a return address, but may be left over from an earlier call
    };
    uintptr_t address = 0;  ///< on ARM, bit 0 marks Thumb code
    kind_e kind = CALLER;
};

class StackVisitor {
 public:
    virtual ~StackVisitor() = default;
    /** Returns false to end the walk. */
    virtual bool visit(const StackFrame& frame) = 0;
};

/** While one exists, walks of this thread start where the signal interrupted it. They may be nested. */
class InterruptedHere {
 public:
    /** `ucontext` is the third argument of a handler with `SA_SIGINFO`; it must outlive this object. */
    explicit InterruptedHere(const void* ucontext);
    InterruptedHere(const InterruptedHere&) = delete;
    InterruptedHere& operator=(const InterruptedHere&) = delete;
    ~InterruptedHere();

 private:
    const void* m_outer;
};

/**
 * Visits the frames, innermost first: from the caller of this function or, in a handler, from the interrupted
 * instruction. Signal-safe once the unwinder has been used before.
 */
[[gnu::noinline]] void walk_stack(StackVisitor& visitor);

}  // namespace corvo::server
