#pragma once
// The functions that an object has but doesn't export, as its file names them unless it was stripped. For
// signal context: no heap, no stdio, no lock.

#include <cstddef>
#include <cstdint>

#include "utils/unique_fd.h"

namespace corvo::server {

class SymbolFile {
 public:
    explicit SymbolFile(const char* path);

    /** Looks for the function at this offset from where the object is loaded. False: none there has a name.
     */
    bool find(uintptr_t offset);

    // Of the last function that was found.
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
    char m_name[256] = "";  ///< mangled, cut
};

}  // namespace corvo::server
