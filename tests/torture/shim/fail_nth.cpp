// scripts/torture preloads this into the daemon to make chosen calls into the C library fail.
//
// The daemon's processes and the script share the rules through a small mapped file, which FAIL_STATE names.
// So one running daemon can be put through many failures, and the calls of parent and child are counted
// together. As in a signal handler, there is no heap and no stdio, and errno changes only where a call fails.

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace {

/** The file's content; failing_calls.py knows the layout. */
struct State {
    std::atomic<int32_t> armed;
    int32_t nth;    // the one call that is hit, counted from 1
    int32_t every;  // above 0: every so-manyth call is hit, whatever `nth` says
    int32_t error;
    std::atomic<int32_t> count;
    std::atomic<int32_t> hits;
    char calls[220];  // ",name,name,"
};

State* map_state() {
    const char* path = std::getenv("FAIL_STATE");
    if (!path) return nullptr;
    const int fd = open(path, O_RDWR | O_CLOEXEC);
    if (fd < 0) return nullptr;
    void* at = mmap(nullptr, sizeof(State), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    return at == MAP_FAILED ? nullptr : static_cast<State*>(at);
}

State* const g_state = map_state();

bool is_listed(const char* name) {
    char key[32] = ",";
    std::strncat(key, name, sizeof key - 3);
    std::strcat(key, ",");
    return std::strstr(g_state->calls, key) != nullptr;
}

/** Whether this call must fail; errno is set then. */
bool fails(const char* name) {
    if (!g_state || !g_state->armed || !is_listed(name)) return false;
    const int32_t n = ++g_state->count;
    if (g_state->every > 0 ? n % g_state->every != 0 : n != g_state->nth) return false;
    ++g_state->hits;
    errno = g_state->error;
    return true;
}

}  // namespace

// The hook has the C library's name only in the symbol table, so that neither its declarations nor its macros
// are in the way. The real function is looked up at load time, as a first look-up from a signal handler would
// allocate.
#define INTERPOSE(result, failure, name, parameters, arguments)                                          \
    extern "C" __attribute__((visibility("default"))) result name##_hook parameters __asm__(#name);      \
    static auto* real_##name = reinterpret_cast<result(*) parameters>(dlsym(RTLD_NEXT, #name));          \
    result name##_hook parameters {                                                                      \
        if (fails(#name)) return failure;                                                                \
        if (!real_##name) real_##name = reinterpret_cast<result(*) parameters>(dlsym(RTLD_NEXT, #name)); \
        return real_##name arguments;                                                                    \
    }                                                                                                    \
    static_assert(true)

// Whether or not a mode is passed, it is where a third parameter would be.
INTERPOSE(int, -1, open, (const char* path, int flags, mode_t mode), (path, flags, mode));
INTERPOSE(int, -1, openat, (int at, const char* path, int flags, mode_t mode), (at, path, flags, mode));
INTERPOSE(int, -1, accept4, (int fd, sockaddr* from, socklen_t* len, int flags), (fd, from, len, flags));
INTERPOSE(int, -1, bind, (int fd, const sockaddr* at, socklen_t len), (fd, at, len));
INTERPOSE(int, -1, socket, (int domain, int type, int protocol), (domain, type, protocol));
INTERPOSE(int, -1, socketpair, (int domain, int type, int protocol, int* fds), (domain, type, protocol, fds));
INTERPOSE(int, -1, setsockopt, (int fd, int level, int option, const void* value, socklen_t len),
          (fd, level, option, value, len));
INTERPOSE(int, -1, epoll_create1, (int flags), (flags));
INTERPOSE(int, -1, epoll_ctl, (int epoll_fd, int op, int fd, epoll_event* event), (epoll_fd, op, fd, event));
INTERPOSE(int, -1, epoll_wait, (int fd, epoll_event* events, int max, int ms), (fd, events, max, ms));
INTERPOSE(int, -1, pipe2, (int* ends, int flags), (ends, flags));
INTERPOSE(pid_t, -1, fork, (), ());
INTERPOSE(pid_t, -1, waitpid, (pid_t pid, int* status, int options), (pid, status, options));
INTERPOSE(int, -1, mkdirat, (int at, const char* path, mode_t mode), (at, path, mode));
INTERPOSE(int, -1, renameat, (int from_at, const char* from, int to_at, const char* to),
          (from_at, from, to_at, to));
INTERPOSE(FILE*, nullptr, fopen, (const char* path, const char* mode), (path, mode));
INTERPOSE(FILE*, nullptr, fopen64, (const char* path, const char* mode), (path, mode));
INTERPOSE(FILE*, nullptr, fdopen, (int fd, const char* mode), (fd, mode));
INTERPOSE(ssize_t, -1, read, (int fd, void* data, size_t size), (fd, data, size));
INTERPOSE(ssize_t, -1, write, (int fd, const void* data, size_t size), (fd, data, size));
INTERPOSE(ssize_t, -1, recv, (int fd, void* data, size_t size, int flags), (fd, data, size, flags));
INTERPOSE(ssize_t, -1, recvfrom, (int fd, void* data, size_t size, int flags, sockaddr* from, socklen_t* len),
          (fd, data, size, flags, from, len));
INTERPOSE(ssize_t, -1, send, (int fd, const void* data, size_t size, int flags), (fd, data, size, flags));
INTERPOSE(ssize_t, -1, sendto,
          (int fd, const void* data, size_t size, int flags, const sockaddr* to, socklen_t len),
          (fd, data, size, flags, to, len));
INTERPOSE(int, -1, nanosleep, (const timespec* wanted, timespec* left), (wanted, left));
INTERPOSE(int, -1, poll, (pollfd * fds, nfds_t count, int ms), (fds, count, ms));
INTERPOSE(int, -1, ppoll, (pollfd * fds, nfds_t count, const timespec* limit, const sigset_t* mask),
          (fds, count, limit, mask));
INTERPOSE(void*, nullptr, dlopen, (const char* path, int flags), (path, flags));
