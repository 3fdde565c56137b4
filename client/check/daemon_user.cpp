#include "client/check/daemon_user.h"

#include <grp.h>
#include <pwd.h>
#include <sys/xattr.h>

#include <cstdio>
#include <filesystem>

namespace brumectl::check {

namespace {

constexpr const char* SERVICE_USER = "brumecpd";

std::string mode_text(const struct stat& info) {
    char mode[8];
    snprintf(mode, sizeof(mode), "%04o", info.st_mode & 07777U);
    return std::string(" (mode ") + mode + ", of " + name_of(info.st_uid) + ")";
}

}  // namespace

std::string name_of(uid_t user) {
    const passwd* entry = getpwuid(user);
    return entry ? entry->pw_name : std::to_string(user);
}

std::optional<FileReader> service_user() {
    const passwd* entry = getpwnam(SERVICE_USER);
    if (entry == nullptr) return std::nullopt;
    FileReader found{entry->pw_uid, std::vector<gid_t>(64), entry->pw_uid == 0};
    const gid_t group = entry->pw_gid;
    int count = static_cast<int>(found.groups.size());
    if (getgrouplist(SERVICE_USER, group, found.groups.data(), &count) < 0) return std::nullopt;
    found.groups.resize(static_cast<size_t>(count));
    return found;
}

std::string hindrance(const FileReader& who, const std::string& path) {
    std::error_code unknown;
    const std::filesystem::path file = std::filesystem::canonical(path, unknown);
    if (unknown) return {};
    const std::optional<FileReader::Barrier> found = who.barrier(file);
    if (!found || found->info.st_mode == 0) return {};
    if (getxattr(found->path.c_str(), "system.posix_acl_access", nullptr, 0) > 0) return {};
    return (found->is_folder ? "can't enter " : "can't read ") + found->path + mode_text(found->info);
}

}  // namespace brumectl::check
