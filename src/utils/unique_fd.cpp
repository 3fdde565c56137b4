#include "utils/unique_fd.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace corvo {

void UniqueFd::reset(int fd) {
    if (m_fd >= 0) {
        int saved = errno;
        close(m_fd);
        errno = saved;
    }
    m_fd = fd;
}

int lift_fd(int fd) {
    if (fd < 0 || fd > 2) return fd;
    UniqueFd low(fd);
    int flags = fcntl(fd, F_GETFD);
    if (flags < 0) return -1;
    return fcntl(fd, (flags & FD_CLOEXEC) ? F_DUPFD_CLOEXEC : F_DUPFD, 3);
}

void occupy_standard_fds() {
    for (int fd = 0; fd <= 2; ++fd)
        if (fcntl(fd, F_GETFD) < 0 && open("/dev/null", O_RDWR) < 0) return;
}

}  // namespace corvo
