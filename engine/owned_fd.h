#pragma once
// Owns one descriptor, numbered above the standard ones: those belong to whoever runs the process, and a
// daemon runs with them closed.

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace corvo::engine {

class OwnedFd {
 public:
    OwnedFd() = default;
    /**
     * Takes ownership, moving the descriptor to a higher number if needed; -1 means none. Preserves errno, or
     * sets it if that fails.
     */
    explicit OwnedFd(int fd) : m_fd(fd) {
        if (fd < 0 || fd > STDERR_FILENO) return;
        m_fd = fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
        int saved = errno;
        close(fd);
        errno = saved;
    }
    OwnedFd(OwnedFd&& other) noexcept : m_fd(other.release()) {}
    OwnedFd& operator=(OwnedFd&& other) noexcept {
        std::swap(m_fd, other.m_fd);
        return *this;
    }
    ~OwnedFd() {
        if (m_fd >= 0) close(m_fd);
    }

    int get() const { return m_fd; }
    explicit operator bool() const { return m_fd >= 0; }
    int release() { return std::exchange(m_fd, -1); }

 private:
    int m_fd = -1;
};

}  // namespace corvo::engine
