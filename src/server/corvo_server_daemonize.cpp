#include "server/corvo_server_daemonize.h"

#include <dirent.h>
#include <sys/syscall.h>
#include <syslog.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "utils/unique_fd.h"

namespace corvo::server {
namespace {

/** The caller becomes the child; its parent exits. False if the fork failed. */
bool continue_in_child() {
    fflush(nullptr);
    pid_t pid = fork();
    if (pid > 0) exit(0);
    return pid == 0;
}

bool close_all_at_once() {
#ifdef SYS_close_range
    return syscall(SYS_close_range, 0U, UINT_MAX, 0U) == 0;
#else
    return false;
#endif
}

/** Counting down from the limit instead would take minutes if it is huge. */
void close_those_listed() {
    DIR* dir = opendir("/proc/self/fd");
    if (!dir) return;
    std::vector<int> open_fds;
    while (const dirent* entry = readdir(dir)) {
        char* end = nullptr;
        long fd = strtol(entry->d_name, &end, 10);
        if (end != entry->d_name && *end == 0 && fd != dirfd(dir)) open_fds.push_back(static_cast<int>(fd));
    }
    closedir(dir);
    for (int fd : open_fds)
        close(fd);
}

/**
 * The C library opens the connection to syslog itself and can't be told to use a high descriptor. The
 * standard ones are occupied while it does, or text printed to stdout would reach syslog later.
 */
void open_syslog_above_standard_descriptors() {
    occupy_standard_fds();
    openlog("brumecpd", LOG_PID | LOG_NDELAY, LOG_DAEMON);
    for (int fd = 0; fd <= 2; ++fd)
        close(fd);
}

}  // namespace

void close_all_descriptors() {
    if (!close_all_at_once()) close_those_listed();
}

bool daemonize() {
    if (!continue_in_child()) return false;
    if (setsid() < 0) return false;
    if (!continue_in_child()) return false;
    close_all_descriptors();
    open_syslog_above_standard_descriptors();
    return true;
}

}  // namespace corvo::server
