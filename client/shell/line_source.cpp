#include "client/shell/line_source.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "client/failure.h"
#include "client/interrupt.h"

namespace brumectl {

bool LineSource::fill() {
    char piece[4096];
    for (;;) {
        if (!interrupt::wait_readable(m_fd, -1)) continue;
        ssize_t size = read(m_fd, piece, sizeof(piece));
        if (size < 0 && (errno == EINTR || errno == EAGAIN)) continue;
        if (size < 0) throw Failure(std::string("the lines can't be read: ") + strerror(errno));
        m_text.append(piece, static_cast<size_t>(size));
        return size > 0;
    }
}

bool LineSource::next(std::string& line) {
    size_t searched = 0;
    for (;;) {
        size_t end = m_text.find('\n', searched);
        searched = m_text.size();
        if (end > MAX_LINE_BYTES && searched > MAX_LINE_BYTES) throw Failure("a line is longer than 1 MiB");
        if (end != std::string::npos || m_end) {
            if (m_text.empty()) return false;
            line = m_text.substr(0, end);
            m_text.erase(0, end == std::string::npos ? end : end + 1);
            return true;
        }
        m_end = !fill();
    }
}

}  // namespace brumectl
