#include "client/text/temp_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>

#include "client/failure.h"
#include "utils/unique_fd.h"

namespace brumectl {

TempFile::TempFile(const std::string& prefix, mode_t mode) : m_path(prefix + "XXXXXX") {
    corvo::UniqueFd fd(mkostemp(m_path.data(), O_CLOEXEC));
    if (!fd) throw Failure("can't create a file " + prefix + "…: " + strerror(errno));
    m_file.reset(fchmod(fd.get(), mode) == 0 ? fdopen(fd.get(), "wb") : nullptr);
    if (!m_file) {
        const int err = errno;
        unlink(m_path.c_str());
        throw Failure("can't write " + m_path + ": " + strerror(err));
    }
    fd.release();
}

TempFile::~TempFile() {
    if (!m_path.empty()) unlink(m_path.c_str());
}

void TempFile::fail(const char* what) const {
    throw Failure(std::string("can't ") + what + " " + m_path + ": " + strerror(errno));
}

int TempFile::fd() const {
    return fileno(m_file.get());
}

// A lock ends with its process and, unlike a process number, means the same in every container.
void TempFile::claim() const {
    flock(fd(), LOCK_EX | LOCK_NB);
}

void TempFile::set_mode(mode_t mode) {
    if (fchmod(fileno(m_file.get()), mode) != 0) fail("set the mode of");
}

bool TempFile::give_to_group(gid_t group) {
    if (fchown(fileno(m_file.get()), static_cast<uid_t>(-1), group) != 0) return false;
    set_mode(0640);
    return true;
}

void TempFile::write(const void* bytes, size_t size) {
    if (fwrite(bytes, 1, size, m_file.get()) != size) fail("write");
}

void TempFile::close() {
    if (m_file && fclose(m_file.release()) != 0) fail("write");
}

void TempFile::rename_to(const std::string& target) {
    close();
    if (rename(m_path.c_str(), target.c_str()) != 0)
        throw Failure("can't write " + target + ": " + strerror(errno));
    m_path.clear();
}

void remove_left_behind(const std::string& prefix) {
    constexpr time_t MAKING_SEC = 60;  // spare files that were just created and are about to be claimed
    std::error_code ignored;
    const std::filesystem::path folder = std::filesystem::path(prefix).parent_path();
    for (const auto& entry : std::filesystem::directory_iterator(folder, ignored)) {
        const std::string path = entry.path().string();
        if (path.rfind(prefix, 0) != 0) continue;
        const corvo::UniqueFd fd(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        struct stat st = {};
        if (!fd || fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode) || st.st_uid != geteuid()) continue;
        if (time(nullptr) - st.st_mtime > MAKING_SEC && flock(fd.get(), LOCK_EX | LOCK_NB) == 0)
            unlink(path.c_str());
    }
}

std::string temp_folder() {
    const char* folder = getenv("TMPDIR");
    return std::filesystem::absolute(folder && *folder ? folder : "/tmp").string();
}

corvo::UniqueFile nameless_file() {
    std::string path = temp_folder() + "/brumectl-XXXXXX";
    corvo::UniqueFd fd(mkostemp(path.data(), O_CLOEXEC));
    if (fd) unlink(path.c_str());
    corvo::UniqueFile file(fd ? fdopen(fd.get(), "w+b") : nullptr);
    if (!file) throw Failure("can't create a file " + path + ": " + strerror(errno));
    fd.release();
    return file;
}

PlacedFile::PlacedFile(const std::string& target) {
    char resolved[PATH_MAX];
    m_path = realpath(target.c_str(), resolved) ? resolved : target;
    struct stat st = {};
    mode_t mode = 0666;
    if (stat(m_path.c_str(), &st) == 0) {
        if (!S_ISREG(st.st_mode)) throw Failure(target + " is no regular file");
        mode = st.st_mode & 07777;
    } else {
        const mode_t mask = umask(0);
        umask(mask);
        mode &= ~mask;
    }
    m_file = std::make_unique<TempFile>(m_path + ".", mode);
}

void PlacedFile::place(const std::string& content) {
    m_file->write(content);
    m_file->rename_to(m_path);
}

}  // namespace brumectl
