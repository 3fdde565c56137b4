#pragma once
// A file without a disk, for code that opens its input by a path.

#include <sys/mman.h>
#include <unistd.h>

#include <cassert>
#include <string>

#include "utils/unique_fd.h"

namespace fuzz {

class MemoryFile {
 public:
    MemoryFile() : m_fd(memfd_create("fuzz", MFD_CLOEXEC)) { assert(m_fd); }

    void write(const std::string& content) {
        [[maybe_unused]] const int rc = ftruncate(m_fd.get(), 0);
        [[maybe_unused]] const ssize_t written = pwrite(m_fd.get(), content.data(), content.size(), 0);
        assert(rc == 0 && written == static_cast<ssize_t>(content.size()));
    }
    /** Each opening has a position of its own. */
    std::string path() const { return "/proc/self/fd/" + std::to_string(m_fd.get()); }

 private:
    corvo::UniqueFd m_fd;
};

}  // namespace fuzz
