#include "utils/trusted_open.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace corvo {
namespace {

bool is_trusted(const struct stat& info) {
    return info.st_uid == 0 || info.st_uid == geteuid();
}

/** Opens the target of `link`, resolved relative to the link's folder. */
UniqueFd open_target(int folder, int link, int flags, mode_t mode) {
    char target[PATH_MAX];
    const ssize_t length = readlinkat(link, "", target, sizeof(target) - 1);
    if (length < 0) return {};
    target[length] = '\0';
    return UniqueFd(lift_fd(openat(folder, target, flags | O_CLOEXEC, mode)));
}

}  // namespace

UniqueFd open_unless_trap(const std::string& path, int flags, mode_t mode) {
    UniqueFd file(lift_fd(open(path.c_str(), flags | O_NOFOLLOW | O_CLOEXEC, mode)));
    if (file || errno != ELOOP) return file;
    // Both stay open while they are checked, so that neither can be replaced in between.
    const size_t slash = path.rfind('/');
    const std::string folder_path = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const UniqueFd folder(lift_fd(open(folder_path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)));
    const std::string name = path.substr(slash + 1);
    const UniqueFd link(lift_fd(openat(folder.get(), name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC)));
    struct stat folder_info {
    }, link_info{};
    if (!folder || !link || fstat(folder.get(), &folder_info) != 0 || fstat(link.get(), &link_info) != 0)
        return {};
    const bool others_write = !is_trusted(folder_info) || (folder_info.st_mode & (S_IWGRP | S_IWOTH)) != 0;
    if (others_write && !is_trusted(link_info)) {
        errno = EPERM;
        return {};
    }
    return open_target(folder.get(), link.get(), flags, mode);
}

}  // namespace corvo
