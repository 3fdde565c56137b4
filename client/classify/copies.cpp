#include "client/classify/copies.h"

#include <sys/mman.h>
#include <sys/sendfile.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "client/failure.h"

namespace brumectl {

const std::optional<FileReader>& Copies::reader() {
    if (!m_has_looked) m_reader = FileReader::of_daemon(m_daemon);
    m_has_looked = true;
    return m_reader;
}

bool Copies::sees_our_descriptors() {
    return reader() && reader()->user == geteuid() && FileReader::sees_processes_as_we_do(m_daemon);
}

void Copies::prepare(const std::string& capture) {
    m_capture = capture;
    if (m_named) tell_if_open(capture);
    if (!m_path.empty()) return;
    if (sees_our_descriptors()) m_nameless.reset(memfd_create("brumectl", MFD_CLOEXEC));
    if (!m_nameless) return make_named(capture);
    m_path = "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(m_nameless.get());
}

bool Copies::use_name() {
    if (m_named) return false;
    make_named(m_capture);
    off_t at = 0;
    while (at < static_cast<off_t>(m_size))
        if (sendfile(m_named->fd(), m_nameless.get(), &at, m_size) <= 0)
            throw Failure("can't write " + m_path + ": " + strerror(errno));
    m_nameless.reset();
    return true;
}

void Copies::make_named(const std::string& capture) {
    const std::string prefix = temp_folder() + "/brumectl-copy-";
    remove_left_behind(prefix);
    m_named = std::make_unique<TempFile>(prefix, 0600);
    m_named->claim();
    m_path = m_named->path();
    if (reader() && (reader()->passes_modes || reader()->user == geteuid())) return;
    if (reader() && m_named->give_to_group(reader()->groups.front())) return;
    m_is_open = true;
    tell_if_open(capture);
    m_named->set_mode(0644);
}

void Copies::tell_if_open(const std::string& capture) {
    if (!m_is_open || m_has_told || (!capture.empty() && FileReader::everybody().may_open(capture))) return;
    m_tell("while the daemon reads them, everybody on this machine can read the copies in " + temp_folder() +
           ": " + (reader() ? "you aren't in the daemon's group" : "who the daemon runs as can't be told"));
    m_has_told = true;
}

void Copies::write(uint64_t offset, const unsigned char* bytes, size_t size) const {
    const int fd = m_named ? m_named->fd() : m_nameless.get();
    while (size > 0) {
        const ssize_t done = pwrite(fd, bytes, size, static_cast<off_t>(offset));
        if (done < 0 && errno == EINTR) continue;
        if (done <= 0) throw Failure("can't write " + m_path + ": " + strerror(errno));
        offset += static_cast<uint64_t>(done);
        bytes += done;
        size -= static_cast<size_t>(done);
    }
}

// Truncates afterwards because reused pages cost less than new ones.
void Copies::finish(uint64_t size) {
    const int fd = m_named ? m_named->fd() : m_nameless.get();
    if (size < m_size && ftruncate(fd, static_cast<off_t>(size)) != 0)
        throw Failure("can't write " + m_path + ": " + strerror(errno));
    m_size = size;
}

}  // namespace brumectl
