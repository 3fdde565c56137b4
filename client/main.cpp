#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <clocale>
#include <cstdio>

#include "client/interrupt.h"
#include "client/program.h"

namespace {

/** A closed standard stream must not be replaced by one of our sockets, which would then be written to. */
void occupy_closed_streams() {
    constexpr int USELESS[] = {O_WRONLY, O_RDONLY, O_RDONLY};  // each fails when used
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd)
        if (fcntl(fd, F_GETFD) < 0) open("/dev/null", USELESS[fd]);
}

/** Flushes the output without waiting: the user may be trying to get away from its reader. */
void flush_if_read() {
    pollfd out = {STDOUT_FILENO, POLLOUT, 0};
    if (poll(&out, 1, 0) > 0) fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
    occupy_closed_streams();
    setlocale(LC_CTYPE, "");
    brumectl::interrupt::install();
    try {
        return brumectl::Program().run(std::vector<std::string>(argv + 1, argv + argc));
    } catch (const brumectl::Interrupted& e) {
        flush_if_read();
        brumectl::interrupt::die_by(e.signum());
    }
}
