#pragma once
// Where a thread's signal handlers run, so that one for an overflow of its stack has room.

#include <sys/mman.h>

#include <csignal>
#include <cstddef>

namespace corvo::engine {

/**
 * That of the thread that makes and destroys it. Without memory for it, handlers run on the thread's own;
 * where there is one already, as with a sanitizer, it stays.
 */
class AlternateStack {
 public:
    AlternateStack() {
        stack_t stack{};
        if (sigaltstack(nullptr, &stack) != 0 || !(stack.ss_flags & SS_DISABLE)) return;
        m_memory =
            mmap(nullptr, BYTES, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
        if (m_memory == MAP_FAILED) return;
        stack = {};
        stack.ss_sp = m_memory;
        stack.ss_size = BYTES;
        sigaltstack(&stack, nullptr);
    }
    AlternateStack(const AlternateStack&) = delete;
    AlternateStack& operator=(const AlternateStack&) = delete;
    ~AlternateStack() {
        if (m_memory == MAP_FAILED) return;
        stack_t none{};
        none.ss_flags = SS_DISABLE;
        sigaltstack(&none, nullptr);
        munmap(m_memory, BYTES);
    }

 private:
    static constexpr size_t BYTES = 128UL << 10;

    void* m_memory = MAP_FAILED;
};

}  // namespace corvo::engine
