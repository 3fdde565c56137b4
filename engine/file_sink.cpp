#include "file_sink.h"

#include <sys/stat.h>

#include <climits>

#include "engine_error.h"

namespace corvo::engine {
namespace {

constexpr size_t MAX_REGULAR = 1 << 18;

}  // namespace

FileSink::FileSink(const std::string& path) : m_path(path) {
    if (path.empty()) throw Error("the exporter's file has no path");
    if (path.size() >= PATH_MAX || path.find('\0') != std::string::npos)
        throw Error("the path of the exporter's file is impossible: " + quoted(path));
    if (!open_file()) throw Error(m_error);
}

// Without O_NONBLOCK, opening a pipe without a reader would block.
OwnedFd FileSink::open_file() {
    OwnedFd file(
        open(m_path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0640));
    if (!file) m_error = "can't open the exporter's file " + quoted(m_path) + reason(errno);
    return file;
}

ExportSink::Outcome FileSink::start(const std::string& text) {
    OwnedFd file = open_file();
    if (!file) return FAILED;
    struct stat before {};
    bool regular = fstat(file.get(), &before) == 0 && S_ISREG(before.st_mode);
    std::string line = text + "\n";
    ssize_t written = write(file.get(), line.data(), line.size());
    if (written == static_cast<ssize_t>(line.size())) return SENT;
    m_error = "can't write to the exporter's file " + quoted(m_path) + reason(written < 0 ? errno : ENOSPC);
    // Half a line would corrupt the next one too.
    if (written > 0 && regular && ftruncate(file.get(), before.st_size) < 0) m_error += reason(errno);
    return FAILED;
}

// A pipe takes small texts whole; what is too long for it would be cut.
size_t FileSink::max_text() const {
    struct stat now {};
    return stat(m_path.c_str(), &now) == 0 && !S_ISREG(now.st_mode) ? PIPE_BUF - 1 : MAX_REGULAR;
}

void FileSink::describe(Json::Value& out) const {
    out["type"] = "file";
    out["path"] = m_path;
}

}  // namespace corvo::engine
