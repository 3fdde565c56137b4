#pragma once
// Who is going to open a file: the daemon, as far as that can be determined from here, or anyone. Considers
// only file modes; access lists and sandboxes aren't visible.

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "client/wire/daemon.h"

namespace brumectl {

struct FileReader {
    std::optional<uid_t> user = {};  ///< empty: anyone without special rights
    std::vector<gid_t> groups = {};  ///< the first is the process's own
    bool passes_modes = false;       ///< root, unless it has dropped that right

    /**
     * Determined from /proc if the daemon's process is visible, else from the owner of its socket. Empty if
     * the daemon is elsewhere.
     */
    static std::optional<FileReader> of_daemon(Daemon& daemon);
    static FileReader everybody() { return {}; }
    /**
     * Whether our process number is valid for the daemon too, and it can open our open files if it runs as
     * our user.
     */
    static bool sees_processes_as_we_do(Daemon& daemon);

    /** `path` must be absolute and without links. Its folders count too. */
    bool may_open(const std::string& path) const;

 private:
    bool may(const std::string& path, mode_t right) const;
};

}  // namespace brumectl
