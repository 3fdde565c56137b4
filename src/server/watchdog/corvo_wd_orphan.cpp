#include "server/watchdog/corvo_wd_orphan.h"

#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>

namespace corvo::server {
namespace {

volatile std::sig_atomic_t g_parent = 0;
volatile std::sig_atomic_t g_read_end = -1;

}  // namespace

void watch_parent(pid_t parent, UniqueFd read_end) {
    g_parent = parent;
    g_read_end = read_end.release();
    prctl(PR_SET_PDEATHSIG, SIGPIPE);
    drop_stderr_of_orphan();  // the parent may have died before the kernel was asked
}

void drop_stderr_of_orphan() {
    const int fd = g_read_end;
    if (fd < 0 || getppid() == g_parent) return;
    g_read_end = -1;
    close(fd);
}

}  // namespace corvo::server
