#pragma once
// A thin layer over the system calls of the poller and the channels. Engine libraries bind to these by name,
// so names and signatures are part of the interface. Unless noted otherwise, each passes its arguments on and
// returns the system call's result with errno untouched.

struct epoll_event;
struct itimerspec;
struct pollfd;
struct sockaddr;
struct timespec;

extern "C" {

int cv_timerfd_create(int clock_id, int flags);
int cv_timerfd_settime(int fd, int flags, const itimerspec* value, itimerspec* old_value);
int cv_nanosleep(const timespec* request, timespec* remaining);

int cv_socket(int domain, int type, int protocol);
int cv_bind(int fd, const sockaddr* address, unsigned int length);
int cv_listen(int fd, int backlog);
int cv_connect(int fd, const sockaddr* address, unsigned int length);
long cv_send(int fd, const void* data, unsigned int size, int flags);
long cv_recv(int fd, void* data, unsigned int size, int flags);
int cv_socketpair(int domain, int type, int protocol, int* fds);
int cv_close(int fd);

int cv_epoll_create1(int flags);
int cv_epoll_ctl(int epoll_fd, int op, int fd, epoll_event* event);
int cv_epoll_wait(int epoll_fd, epoll_event* events, int max_events, int timeout_ms);
int cv_poll(pollfd* fds, unsigned long count, int timeout_ms);

/**
 * Sets a socket's send buffer size in bytes. Returns 0, or -1 with errno set; EFBIG if the kernel made the
 * buffer smaller than requested.
 */
int cv_set_sock_send_qsize(int fd, unsigned int size);
/**
 * Reads the send buffer size as reported by the kernel. Returns 0, or -1 with errno set and `size` untouched.
 */
int cv_get_sock_send_qsize(int fd, unsigned int& size);
}
