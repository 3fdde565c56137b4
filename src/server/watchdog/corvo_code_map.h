#pragma once
// Which addresses of this process are code, and which words of a stack look like return addresses. For signal
// context: no heap, no stdio, no lock.

#include <cstddef>
#include <cstdint>

namespace corvo::server {

class CodeMap {
 public:
    /** Reads the kernel's list of mappings; `sp` tells which is the stack. False: it can't be had. */
    bool read(uintptr_t sp);

    /** Whether that is where a call returns to: in code, and behind an instruction that calls. */
    bool is_behind_call(uintptr_t address) const;

    /** The words from `sp` to the end of the stack come next. */
    void scan_from(uintptr_t sp);
    /** The next of them that is behind a call; 0: there is none. */
    uintptr_t next_return_address();

 private:
    struct Range {
        uintptr_t begin = 0;
        uintptr_t end = 0;
    };

    void take_line(const char* line, uintptr_t sp);
    /** Whether `size` bytes before `end` are code. */
    bool is_code_before(uintptr_t end, size_t size) const;

    static constexpr size_t MAX_RANGES = 200;
    Range m_code[MAX_RANGES];
    size_t m_count = 0;
    Range m_stack;  ///< what is left of it
};

}  // namespace corvo::server
