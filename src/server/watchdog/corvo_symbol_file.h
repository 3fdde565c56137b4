#pragma once
// Finds the names of functions that an object doesn't export, in the symbol table of its file unless that was
// stripped. Usable in signal context: no heap, no stdio, no locks.

#include <cstddef>
#include <cstdint>

#include "utils/unique_fd.h"

namespace corvo::server {

class SymbolFile {
 public:
    explicit SymbolFile(const char* path);

    /** Finds the function at an offset from the object's load address. Returns false if none there has a
     * name. */
    bool find(uintptr_t offset);

    // These describe the function that was found last.
    const char* name() const { return m_name; }
    uintptr_t begin() const { return m_begin; }

 private:
    struct Extent {
        uint64_t offset = 0;  ///< in the file
        uint64_t size = 0;
    };

    bool read_at(uint64_t offset, void* to, size_t size) const;
    bool read_name(uint64_t offset);

    UniqueFd m_file;
    Extent m_symbols;
    Extent m_names;
    uintptr_t m_begin = 0;
    char m_name[256] = "";  ///< mangled; truncated if too long
};

}  // namespace corvo::server
