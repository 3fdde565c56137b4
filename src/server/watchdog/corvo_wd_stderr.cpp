#include "server/watchdog/corvo_wd_stderr.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "infra/corvo_logger.h"
#include "server/watchdog/corvo_wd_signals.h"
#include "utils/clock.h"

namespace corvo::server {
namespace {

const std::string COMP = "WD";

// At the end of the pipe the child is usually about to end too, which the parent should see soon. A child
// that merely closed its stderr must not make the parent spin.
constexpr uint64_t WAIT_AT_END_MS = 100;

void set_non_blocking(int fd) {
    const int flags = fcntl(fd, F_GETFL);
    if (flags < 0)
        CORVO_LOG(ERROR, COMP, "Error getting stderr pipe flags");
    else if (fcntl(fd, F_SETFL, flags | O_NONBLOCK) < 0)
        CORVO_LOG(ERROR, COMP, "Error setting stderr pipe as non-blocking");
}

}  // namespace

StderrReader::StderrReader(UniqueFd read_end) : m_fd(std::move(read_end)) {
    set_non_blocking(m_fd.get());
}

int StderrReader::read_stderr_from_child(uint64_t wait_ms) {
    if (m_at_end) {
        wait_for_input(-1, std::min(wait_ms, WAIT_AT_END_MS));
        return 1;
    }
    std::string text;
    int result = 1;
    const uint64_t deadline = monotonic_ms() + wait_ms;
    uint64_t left_ms = wait_ms;
    while (wait_for_input(m_fd.get(), left_ms)) {
        result = read_stderr_till_comp(text);
        m_at_end = result != 0;
        const uint64_t now = monotonic_ms();
        if (m_at_end || now >= deadline || text.size() >= MAX_BYTES) break;
        left_ms = deadline - now;
    }
    if (!text.empty()) CORVO_LOG_TEXT(ERROR, COMP, text);
    return result;
}

/**
 * Empties the pipe into `out`, up to MAX_BYTES. Returns 0 if it is still open; 1 at end of file or
 * on failure.
 */
int StderrReader::read_stderr_till_comp(std::string& out) {
    char buffer[1024];
    for (size_t taken = 0; taken < MAX_BYTES;) {
        const ssize_t got = read(m_fd.get(), buffer, sizeof buffer - 1);
        if (got == 0) return 1;
        if (got < 0) {
            if (errno == EAGAIN || errno == EINTR) return 0;
            CORVO_LOG(ERROR, COMP, "Failed to read stderr from child process [%s]", strerror(errno));
            return 1;
        }
        taken += static_cast<size_t>(got);
        buffer[got] = 0;
        out += buffer;
    }
    return 0;
}

}  // namespace corvo::server
