#pragma once
// Whether the daemon's user may read a file that is a start-up configuration to be: one who may not is only
// told in the log, and goes on without an engine.

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace brumectl::check {

struct DaemonUser {
    std::string name;
    uid_t uid = 0;
    std::vector<gid_t> groups = {};

    /** As whom a process acts; nothing if it isn't a brumecpd of this machine, or can't be seen. */
    static std::optional<DaemonUser> of_process(pid_t pid);
    /** The user whom the service runs as; nothing where that isn't installed. */
    static std::optional<DaemonUser> of_service();

    /**
     * Why it can't read the file, such as "can't enter /root (mode 0700, of root)"; empty if it can, or if
     * that isn't for the modes to say (access lists).
     */
    std::string hindrance(const std::string& path) const;
};

}  // namespace brumectl::check
