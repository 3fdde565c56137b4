#include "client/evidence/evidence_dir.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>

#include "client/failure.h"

namespace brumectl {

namespace {

using corvo::UniqueFd;

constexpr const char* REPORT = "cvdump.json";
constexpr const char* STALL_DUMP = "cv_hog_dump.txt";
/** In addition there is a copy of the log, which can have any name. */
constexpr const char* KNOWN_FILES[] = {REPORT, STALL_DUMP, "cvconfig.json"};
constexpr size_t MAX_REPORT_BYTES = 1024UL * 1024;
constexpr size_t MAX_NAMES = 100'000;

[[noreturn]] void fail(const std::string& what, const std::string& name) {
    const bool is_denied = errno == EACCES || errno == EPERM;
    throw Failure(what + " " + name + ": " + strerror(errno) + (is_denied ? ", that takes root" : ""));
}

/** All except "." and "..". Throws Failure. */
std::vector<std::string> names_in(int dir_fd) {
    UniqueFd fd(openat(dir_fd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    std::unique_ptr<DIR, int (*)(DIR*)> dir(fd ? fdopendir(fd.get()) : nullptr, closedir);
    if (!dir) fail("can't read", "the directory");
    fd.release();
    std::vector<std::string> names;
    for (;;) {
        errno = 0;
        const dirent* entry = readdir(dir.get());
        if (entry == nullptr && errno != 0) fail("can't read", "the directory");
        if (entry == nullptr) return names;
        std::string name = entry->d_name;
        if (name == "." || name == "..") continue;
        if (names.size() == MAX_NAMES) throw Failure("there are too many files in the directory");
        names.push_back(std::move(name));
    }
}

/** Size of a regular file; -1 for anything else. */
int64_t size_of(int dir_fd, const std::string& name) {
    struct stat info = {};
    if (fstatat(dir_fd, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISREG(info.st_mode)) return -1;
    return info.st_size;
}

bool has_entry(int dir_fd, const std::string& name) {
    struct stat info = {};
    return fstatat(dir_fd, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0;
}

bool is_folder(int dir_fd, const std::string& name) {
    struct stat info = {};
    return fstatat(dir_fd, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(info.st_mode);
}

/**
 * The name under which everybody can find an open folder, unlike one through another process's /proc;
 * else `path`.
 */
std::string lasting_path(int fd, const std::string& path) {
    std::error_code ignored;
    const std::string found = std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd), ignored);
    struct stat named = {};
    struct stat opened = {};
    const bool is_same = stat(found.c_str(), &named) == 0 && fstat(fd, &opened) == 0 &&
                         named.st_dev == opened.st_dev && named.st_ino == opened.st_ino;
    return is_same ? found : path;
}

std::string read_file(int dir_fd, const char* name) {
    UniqueFd fd(openat(dir_fd, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat info = {};
    if (!fd || fstat(fd.get(), &info) != 0 || !S_ISREG(info.st_mode)) return {};
    std::string text;
    char piece[65536];
    ssize_t size = 0;
    while (text.size() < MAX_REPORT_BYTES && (size = ::read(fd.get(), piece, sizeof(piece))) > 0)
        text.append(piece, static_cast<size_t>(size));
    return text;
}

/** The regular files, by name. Throws Failure. */
std::vector<EvidenceFile> files_in(int dir_fd) {
    std::vector<EvidenceFile> files;
    for (const std::string& name : names_in(dir_fd))
        if (int64_t bytes = size_of(dir_fd, name); bytes >= 0)
            files.push_back({name, static_cast<uint64_t>(bytes)});
    std::sort(files.begin(), files.end(),
              [](const EvidenceFile& a, const EvidenceFile& b) { return a.name < b.name; });
    return files;
}

uint64_t bytes_in(const std::vector<EvidenceFile>& files) {
    uint64_t sum = 0;
    for (const EvidenceFile& file : files)
        sum += file.bytes;
    return sum;
}

/** `dump` is the file that a stall leaves next to its report, or instead of one. */
void read_report(int dir_fd, const char* dump, Evidence& evidence) {
    const bool is_there = has_entry(dir_fd, REPORT);
    evidence.report = EvidenceReport::from_json_text(read_file(dir_fd, REPORT));
    if (evidence.report.cause == EvidenceReport::NONE && dump != nullptr)
        if (const std::string text = read_file(dir_fd, dump); !text.empty())
            evidence.report = EvidenceReport::from_stall_dump(text);
    if (!evidence.report.json.isNull()) return;
    evidence.fault = std::string(is_there ? "can't be read: " : "missing: ") + REPORT;
    if (is_there && evidence.report.cause == EvidenceReport::NONE)
        evidence.report.cause = EvidenceReport::UNKNOWN;
}

bool is_known(const std::string& name) {
    return std::find(std::begin(KNOWN_FILES), std::end(KNOWN_FILES), name) != std::end(KNOWN_FILES);
}

}  // namespace

bool is_stamp(const std::string& name) {
    constexpr const char* SHAPE = "0000_00_00_00_00_00";
    if (name.size() != strlen(SHAPE)) return false;
    for (size_t i = 0; i < name.size(); ++i)
        if (SHAPE[i] == '0' ? name[i] < '0' || name[i] > '9' : name[i] != SHAPE[i]) return false;
    return true;
}

uint64_t Evidence::bytes() const {
    return bytes_in(files);
}

EvidenceDir::EvidenceDir(const std::string& path)
    : m_path(path), m_fd(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    // Readable but not searchable, it would appear empty.
    if (!m_fd || faccessat(m_fd.get(), ".", X_OK, AT_EACCESS) != 0) fail("can't open", path);
    m_path = lasting_path(m_fd.get(), path);
}

std::vector<std::string> EvidenceDir::stamps() const {
    std::vector<std::string> found;
    for (const std::string& name : names_in(m_fd.get()))
        if (is_stamp(name) && is_folder(m_fd.get(), name)) found.push_back(name);
    std::sort(found.begin(), found.end());
    return found;
}

/** None for a link, or anything but a folder. */
UniqueFd EvidenceDir::open_stamp(const std::string& stamp) const {
    return UniqueFd(openat(m_fd.get(), stamp.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

std::vector<Evidence> EvidenceDir::list() const {
    std::vector<Evidence> found;
    for (const std::string& stamp : stamps())
        found.push_back(read(stamp));
    if (size_of(m_fd.get(), LAST_STOP) >= 0) found.push_back(read_last_stop());
    return found;
}

Evidence EvidenceDir::find(const std::string& name) const {
    if (name == LAST_STOP && size_of(m_fd.get(), LAST_STOP) >= 0) return read_last_stop();
    if (!is_stamp(name) || !is_folder(m_fd.get(), name))
        throw Failure("there's no '" + name + "' in " + m_path);
    return read(name);
}

Evidence EvidenceDir::read(const std::string& stamp) const {
    Evidence evidence{stamp};
    try {
        UniqueFd dir = open_stamp(stamp);
        if (!dir) fail("can't open", "the folder");
        evidence.files = files_in(dir.get());
        read_report(dir.get(), STALL_DUMP, evidence);
    } catch (const Failure& e) {
        // One unreadable folder must not hide the others.
        evidence.fault = e.what();
        evidence.report.cause = EvidenceReport::UNKNOWN;
    }
    return evidence;
}

Evidence EvidenceDir::read_last_stop() const {
    Evidence evidence{LAST_STOP};
    evidence.files.push_back(
        {REPORT, static_cast<uint64_t>(std::max<int64_t>(0, size_of(m_fd.get(), REPORT)))});
    read_report(m_fd.get(), nullptr, evidence);
    return evidence;
}

uint64_t EvidenceDir::bytes_of(const std::string& stamp) const {
    try {
        UniqueFd dir = open_stamp(stamp);
        return dir ? bytes_in(files_in(dir.get())) : 0;
    } catch (const Failure&) {
        return 0;
    }
}

void EvidenceDir::remove(const std::string& stamp) const {
    UniqueFd dir = is_stamp(stamp) ? open_stamp(stamp) : UniqueFd();
    if (!dir && errno == EACCES) fail("can't open", m_path + "/" + stamp);
    if (!dir) throw Failure(stamp + " is no event's folder");
    const std::vector<std::string> names = names_in(dir.get());
    bool only_files = std::all_of(names.begin(), names.end(),
                                  [&](const auto& name) { return size_of(dir.get(), name) >= 0; });
    if (!only_files || std::count_if(names.begin(), names.end(), std::not_fn(is_known)) > 1)
        throw Failure(stamp + " holds more than an event's files");
    for (const std::string& name : names)
        if (unlinkat(dir.get(), name.c_str(), 0) != 0)
            fail("can't remove", m_path + "/" + stamp + "/" + name);
    if (unlinkat(m_fd.get(), stamp.c_str(), AT_REMOVEDIR) != 0) fail("can't remove", m_path + "/" + stamp);
}

}  // namespace brumectl
