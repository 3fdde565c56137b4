#include "infra/exports/corvo_shims.h"

#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

static_assert(sizeof(timespec) == 2 * sizeof(long), "what closed libraries have, whatever the daemon has");

int cv_timerfd_create(int clock_id, int flags) {
    return timerfd_create(clock_id, flags);
}

int cv_timerfd_settime(int fd, int flags, const itimerspec* value, itimerspec* old_value) {
    return timerfd_settime(fd, flags, value, old_value);
}

int cv_nanosleep(const timespec* request, timespec* remaining) {
    return nanosleep(request, remaining);
}

int cv_socket(int domain, int type, int protocol) {
    return socket(domain, type, protocol);
}

int cv_bind(int fd, const sockaddr* address, unsigned int length) {
    return bind(fd, address, length);
}

int cv_listen(int fd, int backlog) {
    return listen(fd, backlog);
}

int cv_connect(int fd, const sockaddr* address, unsigned int length) {
    return connect(fd, address, length);
}

long cv_send(int fd, const void* data, unsigned int size, int flags) {
    return send(fd, data, size, flags);
}

long cv_recv(int fd, void* data, unsigned int size, int flags) {
    return recv(fd, data, size, flags);
}

int cv_socketpair(int domain, int type, int protocol, int* fds) {
    return socketpair(domain, type, protocol, fds);
}

int cv_close(int fd) {
    return close(fd);
}

int cv_epoll_create1(int flags) {
    return epoll_create1(flags);
}

int cv_epoll_ctl(int epoll_fd, int op, int fd, epoll_event* event) {
    return epoll_ctl(epoll_fd, op, fd, event);
}

int cv_epoll_wait(int epoll_fd, epoll_event* events, int max_events, int timeout_ms) {
    return epoll_wait(epoll_fd, events, max_events, timeout_ms);
}

int cv_poll(pollfd* fds, unsigned long count, int timeout_ms) {
    return poll(fds, count, timeout_ms);
}

int cv_set_sock_send_qsize(int fd, unsigned int size) {
    if (setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &size, sizeof size) != 0) return -1;
    unsigned int granted = 0;
    if (cv_get_sock_send_qsize(fd, granted) != 0) return -1;
    if (granted < size) {
        errno = EFBIG;
        return -1;
    }
    return 0;
}

int cv_get_sock_send_qsize(int fd, unsigned int& size) {
    socklen_t length = sizeof size;
    return getsockopt(fd, SOL_SOCKET, SO_SNDBUF, &size, &length);
}
