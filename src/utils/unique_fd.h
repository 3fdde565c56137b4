#pragma once
// Ownership of file descriptors.

namespace corvo {

/** Owns one descriptor and closes it. -1 means none. Preserves errno on destruction. */
class UniqueFd {
 public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : m_fd(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : m_fd(other.release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        if (this != &other) reset(other.release());
        return *this;
    }
    ~UniqueFd() { reset(); }

    int get() const { return m_fd; }
    explicit operator bool() const { return m_fd >= 0; }
    /** Releases ownership without closing. */
    int release() {
        int fd = m_fd;
        m_fd = -1;
        return fd;
    }
    void reset(int fd = -1);

 private:
    int m_fd = -1;
};

/**
 * Moves a descriptor above 2, keeping its close-on-exec flag, and returns its new number. A daemon runs with
 * 0 to 2 closed: without this, its sockets and timers would get those numbers, and whatever a library prints
 * would be written to 1 and 2. Passes -1 through with errno untouched. If the move fails, closes `fd` and
 * returns -1 with errno set.
 */
int lift_fd(int fd);

/**
 * Opens /dev/null as each of the descriptors 0 to 2 that is closed, so that nothing else gets one of them.
 */
void occupy_standard_fds();

}  // namespace corvo
