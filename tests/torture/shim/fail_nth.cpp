// Preloaded into the daemon by scripts/torture: makes chosen calls into the C library fail, or wait, at
// chosen moments.
//
// Which ones stands in a small file that the daemon's processes and the script map together (FAIL_STATE names
// it), so that one running daemon can be put through many failures, and calls are counted over parent and
// child. The same rules hold in here as in a signal handler: no heap, no stdio, errno untouched unless a call
// fails.

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/timerfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

// Defined below under their plain names; a macro of the large-file interface would rename them.
#undef open
#undef fopen

namespace {

/** The file's content; failing_calls.py knows the layout. */
struct State {
    std::atomic<int32_t> armed;
    int32_t nth;       // counted from 1
    int32_t every;     // above 0: each so-manyth call, whatever `nth` says
    int32_t and_on;    // all calls from the nth on
    int32_t error;     // 0: the call goes through
    int32_t delay_ms;  // before the call fails or goes through
    int32_t pid;       // above 0: calls of other processes don't count
    std::atomic<int32_t> count;
    std::atomic<int32_t> hits;
    char calls[220];  // ",name,name,"
};

State* map_state() {
    const char* path = std::getenv("FAIL_STATE");
    if (!path) return nullptr;
    // The raw call: `open` is one of those that are counted.
    const int fd = openat(AT_FDCWD, path, O_RDWR | O_CLOEXEC);
    if (fd < 0) return nullptr;
    void* at = mmap(nullptr, sizeof(State), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    return at == MAP_FAILED ? nullptr : static_cast<State*>(at);
}

State* g_state = nullptr;

__attribute__((constructor)) void prepare() {
    g_state = map_state();
}

bool is_listed(const char* name) {
    char key[32] = ",";
    std::strncat(key, name, sizeof key - 3);
    std::strcat(key, ",");
    return std::strstr(g_state->calls, key) != nullptr;
}

void pause_ms(int32_t ms) {
    timespec left = {ms / 1000, ms % 1000 * 1000000L};
    while (clock_nanosleep(CLOCK_MONOTONIC, 0, &left, &left) == EINTR) {
    }
}

/** Whether this call must fail; errno is set then. */
bool fails(const char* name) {
    if (!g_state || !g_state->armed || !is_listed(name)) return false;
    if (g_state->pid > 0 && g_state->pid != getpid()) return false;
    const int32_t n = ++g_state->count;
    const bool hit = g_state->every > 0 ? n % g_state->every == 0
                     : g_state->and_on  ? n >= g_state->nth
                                        : n == g_state->nth;
    if (!hit) return false;
    ++g_state->hits;
    const int saved_errno = errno;
    if (g_state->delay_ms > 0) pause_ms(g_state->delay_ms);
    errno = g_state->error != 0 ? g_state->error : saved_errno;
    return g_state->error != 0;
}

template <typename Fn>
Fn next_of(const char* name) {
    return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}

}  // namespace

// The real function is looked up at load time, as a first look-up from a signal handler would allocate.
#define INTERPOSE(result, failure, name, parameters, arguments)                \
    namespace {                                                                \
    using name##_fn = result(*) parameters;                                    \
    name##_fn real_##name = next_of<name##_fn>(#name);                         \
    }                                                                          \
    extern "C" __attribute__((visibility("default"))) result name parameters { \
        if (fails(#name)) return failure;                                      \
        if (!real_##name) real_##name = next_of<name##_fn>(#name);             \
        return real_##name arguments;                                          \
    }                                                                          \
    static_assert(true)

INTERPOSE(int, -1, accept, (int fd, sockaddr* address, socklen_t* length), (fd, address, length));
INTERPOSE(int, -1, accept4, (int fd, sockaddr* address, socklen_t* length, int flags),
          (fd, address, length, flags));
INTERPOSE(int, -1, bind, (int fd, const sockaddr* address, socklen_t length), (fd, address, length));
INTERPOSE(int, -1, listen, (int fd, int backlog), (fd, backlog));
INTERPOSE(int, -1, socket, (int domain, int type, int protocol), (domain, type, protocol));
INTERPOSE(int, -1, socketpair, (int domain, int type, int protocol, int* fds), (domain, type, protocol, fds));
INTERPOSE(int, -1, setsockopt, (int fd, int level, int option, const void* value, socklen_t length),
          (fd, level, option, value, length));
INTERPOSE(int, -1, epoll_create1, (int flags), (flags));
INTERPOSE(int, -1, epoll_ctl, (int epoll_fd, int op, int fd, epoll_event* event), (epoll_fd, op, fd, event));
INTERPOSE(int, -1, epoll_wait, (int epoll_fd, epoll_event* events, int max, int timeout_ms),
          (epoll_fd, events, max, timeout_ms));
INTERPOSE(int, -1, timerfd_create, (int clock_id, int flags), (clock_id, flags));
INTERPOSE(int, -1, timerfd_settime, (int fd, int flags, const itimerspec* value, itimerspec* old_value),
          (fd, flags, value, old_value));
INTERPOSE(int, -1, pipe2, (int* ends, int flags), (ends, flags));
INTERPOSE(pid_t, -1, fork, (), ());
INTERPOSE(pid_t, -1, waitpid, (pid_t pid, int* status, int options), (pid, status, options));
INTERPOSE(int, -1, mkdir, (const char* path, mode_t mode), (path, mode));
INTERPOSE(int, -1, chmod, (const char* path, mode_t mode), (path, mode));
INTERPOSE(int, -1, rename, (const char* from, const char* to), (from, to));
INTERPOSE(FILE*, nullptr, fopen, (const char* path, const char* mode), (path, mode));
INTERPOSE(FILE*, nullptr, fopen64, (const char* path, const char* mode), (path, mode));
INTERPOSE(FILE*, nullptr, fdopen, (int fd, const char* mode), (fd, mode));
INTERPOSE(int, EOF, fflush, (FILE * file), (file));
INTERPOSE(ssize_t, -1, read, (int fd, void* data, size_t size), (fd, data, size));
INTERPOSE(ssize_t, -1, write, (int fd, const void* data, size_t size), (fd, data, size));
INTERPOSE(ssize_t, -1, recv, (int fd, void* data, size_t size, int flags), (fd, data, size, flags));
INTERPOSE(ssize_t, -1, recvfrom,
          (int fd, void* data, size_t size, int flags, sockaddr* address, socklen_t* length),
          (fd, data, size, flags, address, length));
INTERPOSE(ssize_t, -1, send, (int fd, const void* data, size_t size, int flags), (fd, data, size, flags));
INTERPOSE(ssize_t, -1, sendto,
          (int fd, const void* data, size_t size, int flags, const sockaddr* address, socklen_t length),
          (fd, data, size, flags, address, length));
INTERPOSE(int, -1, nanosleep, (const timespec* request, timespec* remaining), (request, remaining));
INTERPOSE(int, -1, poll, (pollfd * fds, nfds_t count, int timeout_ms), (fds, count, timeout_ms));
INTERPOSE(int, -1, ppoll, (pollfd * fds, nfds_t count, const timespec* timeout, const sigset_t* mask),
          (fds, count, timeout, mask));
INTERPOSE(void*, nullptr, dlopen, (const char* path, int flags), (path, flags));

// A variable argument that is only there for a new file, hence by hand.
#define INTERPOSE_OPEN(name)                                                                       \
    namespace {                                                                                    \
    using name##_fn = int (*)(const char*, int, ...);                                              \
    name##_fn real_##name = next_of<name##_fn>(#name);                                             \
    }                                                                                              \
    extern "C" __attribute__((visibility("default"))) int name(const char* path, int flags, ...) { \
        va_list arguments;                                                                         \
        va_start(arguments, flags);                                                                \
        const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;  \
        va_end(arguments);                                                                         \
        if (fails(#name)) return -1;                                                               \
        if (!real_##name) real_##name = next_of<name##_fn>(#name);                                 \
        return real_##name(path, flags, mode);                                                     \
    }                                                                                              \
    static_assert(true)

INTERPOSE_OPEN(open);
INTERPOSE_OPEN(open64);
