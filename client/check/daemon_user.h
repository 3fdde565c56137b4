#pragma once
// Whether the daemon's user may read a startup configuration. If not, the daemon only logs that and continues
// without an engine.

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace brumectl::check {

struct DaemonUser {
    std::string name;
    uid_t uid = 0;
    std::vector<gid_t> groups = {};

    /** The user of a process; empty if it isn't a brumecpd on this machine or can't be seen. */
    static std::optional<DaemonUser> of_process(pid_t pid);
    /** The user that the service runs as; empty if it isn't installed. */
    static std::optional<DaemonUser> of_service();

    /**
     * Why the user can't read the file, such as "can't enter /root (mode 0700, of root)"; empty if it can, or
     * if the modes don't decide it (access lists).
     */
    std::string hindrance(const std::string& path) const;
};

}  // namespace brumectl::check
