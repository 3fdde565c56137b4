#include "server/watchdog/corvo_wd_events_dir.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace corvo::server {
namespace {

/** With a trailing slash, a link in the last component would be followed. */
std::string without_slash(std::string path) {
    if (path.size() > 1 && path.ends_with('/')) path.pop_back();
    return path;
}

}  // namespace

UniqueFd open_trusted_dir(int parent_fd, const char* path) {
    UniqueFd dir(lift_fd(openat(parent_fd, path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)));
    struct stat info {};
    if (!dir || fstat(dir.get(), &info) != 0) return {};
    if (info.st_uid == 0 || info.st_uid == geteuid()) return dir;
    dir.reset();
    errno = EPERM;
    return {};
}

UniqueFd open_below(int dir_fd, const char* name, int flags) {
    return UniqueFd(lift_fd(openat(dir_fd, name, flags | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, EVENTS_MODE)));
}

EventsDir::EventsDir(const std::string& path, IfMissing if_missing) : m_path(path) {
    enter(AT_FDCWD, without_slash(path), if_missing);
}

EventsDir::EventsDir(const EventsDir& parent, const std::string& name) : m_path(parent.m_path + name) {
    enter(parent.m_fd.get(), name, MAKE);
}

void EventsDir::enter(int parent_fd, const std::string& name, IfMissing if_missing) {
    if (if_missing == LEAVE || mkdirat(parent_fd, name.c_str(), EVENTS_MODE) == 0 || errno == EEXIST)
        m_fd = open_trusted_dir(parent_fd, name.c_str());
    m_error = m_fd ? 0 : errno;
}

bool EventsDir::has(const std::string& name) const {
    return faccessat(m_fd.get(), name.c_str(), F_OK, 0) == 0;
}

bool EventsDir::remove(const std::string& name) const {
    return unlinkat(m_fd.get(), name.c_str(), 0) == 0 ||
           unlinkat(m_fd.get(), name.c_str(), AT_REMOVEDIR) == 0;
}

bool EventsDir::move(const std::string& name, const EventsDir& to) const {
    return renameat(m_fd.get(), name.c_str(), to.m_fd.get(), name.c_str()) == 0;
}

}  // namespace corvo::server
