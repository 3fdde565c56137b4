#pragma once
// Tells which addresses of this process are code, and which words on a stack look like return addresses.
// Usable in signal context: no heap, no stdio, no locks.

#include <cstddef>
#include <cstdint>

namespace corvo::server {

class CodeMap {
 public:
    /** Reads the kernel's list of mappings; `sp` identifies the stack. Returns false if it can't be read. */
    bool read(uintptr_t sp);

    /** Whether a call could return to this address: it is code, and follows a call instruction. */
    bool is_behind_call(uintptr_t address) const;

    /** Starts a scan of the words from `sp` to the end of the stack. */
    void scan_from(uintptr_t sp);
    /** The next word that could be a return address; 0 if there are no more. */
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
    Range m_stack;  ///< the part that hasn't been scanned
};

}  // namespace corvo::server
