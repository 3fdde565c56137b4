#include "client/check/daemon_user.h"

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace brumectl::check {

namespace {

constexpr const char* SERVICE_USER = "brumecpd";
constexpr const char* DAEMON = "brumecpd";

std::string name_of(uid_t uid) {
    const passwd* user = getpwuid(uid);
    return user ? user->pw_name : std::to_string(uid);
}

/** The numbers after "NAME:" in a process's status. */
std::vector<unsigned> numbers_of(const std::string& status, const std::string& name) {
    std::vector<unsigned> numbers;
    const size_t at = status.find("\n" + name + ":");
    if (at == std::string::npos) return numbers;
    std::istringstream line(
        status.substr(at + name.size() + 2, status.find('\n', at + 1) - at - name.size() - 2));
    for (unsigned number = 0; line >> number;)
        numbers.push_back(number);
    return numbers;
}

std::string text_of(const std::string& path) {
    std::ifstream in(path);
    return {std::istreambuf_iterator<char>(in), {}};
}

std::string mode_text(const struct stat& info) {
    char mode[8];
    snprintf(mode, sizeof(mode), "%04o", info.st_mode & 07777U);
    return std::string(" (mode ") + mode + ", of " + name_of(info.st_uid) + ")";
}

/** `wanted` is given as the bit for others: S_IROTH or S_IXOTH. */
bool allows(const struct stat& info, const DaemonUser& who, mode_t wanted) {
    if (info.st_uid == who.uid) return (info.st_mode & (wanted << 6)) != 0;
    const auto& groups = who.groups;
    if (std::find(groups.begin(), groups.end(), info.st_gid) != groups.end())
        return (info.st_mode & (wanted << 3)) != 0;
    return (info.st_mode & wanted) != 0;
}

}  // namespace

std::optional<DaemonUser> DaemonUser::of_process(pid_t pid) {
    const std::string proc = "/proc/" + std::to_string(pid);
    if (text_of(proc + "/comm") != std::string(DAEMON) + "\n") return std::nullopt;
    const std::string status = text_of(proc + "/status");
    const std::vector<unsigned> uids = numbers_of(status, "Uid");  // real, effective, saved, file system
    const std::vector<unsigned> gids = numbers_of(status, "Gid");
    if (uids.size() != 4 || gids.size() != 4) return std::nullopt;
    DaemonUser found{name_of(uids.back()), uids.back(), {gids.back()}};
    for (unsigned group : numbers_of(status, "Groups"))
        found.groups.push_back(group);
    return found;
}

std::optional<DaemonUser> DaemonUser::of_service() {
    const passwd* user = getpwnam(SERVICE_USER);
    if (user == nullptr) return std::nullopt;
    DaemonUser found{user->pw_name, user->pw_uid, std::vector<gid_t>(64)};
    const gid_t group = user->pw_gid;
    int count = static_cast<int>(found.groups.size());
    if (getgrouplist(SERVICE_USER, group, found.groups.data(), &count) < 0) return std::nullopt;
    found.groups.resize(static_cast<size_t>(count));
    return found;
}

std::string DaemonUser::hindrance(const std::string& path) const {
    std::error_code unknown;
    const std::filesystem::path file = std::filesystem::canonical(path, unknown);
    if (unknown || uid == 0) return {};
    std::filesystem::path part;
    for (const auto& name : file) {
        part /= name;
        struct stat info = {};
        if (stat(part.c_str(), &info) != 0) return {};
        const bool folder = part != file;
        if (allows(info, *this, folder ? S_IXOTH : S_IROTH)) continue;
        if (getxattr(part.c_str(), "system.posix_acl_access", nullptr, 0) > 0) return {};
        return (folder ? "can't enter " : "can't read ") + part.string() + mode_text(info);
    }
    return {};
}

}  // namespace brumectl::check
