#include "client/text/text_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "client/failure.h"
#include "client/interrupt.h"
#include "utils/unique_fd.h"

namespace brumectl {

std::string shown_name(const std::string& path) {
    return path == "-" ? "<stdin>" : path;
}

std::string read_text(const std::string& path, size_t max_bytes) {
    const std::string name = shown_name(path);
    corvo::UniqueFd opened;
    int fd = STDIN_FILENO;
    if (path != "-") {
        // Opening a pipe without a writer would block while Ctrl-C is blocked.
        opened.reset(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
        if (!opened) throw Failure(name + ": " + strerror(errno));
        fd = opened.get();
    }
    std::string text;
    char piece[65536];
    for (;;) {
        interrupt::wait_readable(fd, -1);
        ssize_t size = read(fd, piece, sizeof(piece));
        if (size == 0) return text;
        if (size < 0 && (errno == EAGAIN || errno == EINTR)) continue;
        if (size < 0) throw Failure(name + ": " + strerror(errno));
        text.append(piece, static_cast<size_t>(size));
        if (text.size() > max_bytes)
            throw Failure(name + ": more than " + std::to_string(max_bytes >> 20) + " MiB");
    }
}

}  // namespace brumectl
