#include "server/watchdog/corvo_sig_text.h"

#include <string.h>
#include <unistd.h>

#include <cerrno>
#include <iterator>

namespace corvo::server {

bool add_to_buf(char* dst, const char* text, unsigned int& left) {
    const size_t length = strlen(text);
    if (length > left) return false;
    memcpy(dst + strlen(dst), text, length + 1);
    left -= static_cast<unsigned int>(length);
    return true;
}

const char* signal_description(int signum) {
    // Not strsignal, which translates the text and allocates memory for it.
    const char* description = sigdescr_np(signum);
    return description ? description : "Unknown signal";
}

bool signum_to_signame(int signum, char* dst, unsigned int& left) {
    return add_to_buf(dst, signal_description(signum), left);
}

DecimalText::DecimalText(int64_t value) : m_begin(std::end(m_text) - 1) {
    *m_begin = '\0';
    uint64_t rest = value < 0 ? 0 - static_cast<uint64_t>(value) : static_cast<uint64_t>(value);
    do {
        *--m_begin = static_cast<char>('0' + rest % 10);
        rest /= 10;
    } while (rest != 0);
    if (value < 0) *--m_begin = '-';
}

bool write_all(int fd, const char* text, size_t size) {
    while (size > 0) {
        const ssize_t written = write(fd, text, size);
        if (written < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        text += written;
        size -= static_cast<size_t>(written);
    }
    return true;
}

bool write_all(int fd, const char* text) {
    return write_all(fd, text, strlen(text));
}

}  // namespace corvo::server
