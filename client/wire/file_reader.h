#pragma once
// Who is going to open a file: the daemon, as far as that can be determined from here, or anyone. Considers
// only file modes; access lists and sandboxes aren't visible.

#include <sys/stat.h>

#include <optional>
#include <string>
#include <vector>

#include "client/wire/daemon.h"

namespace brumectl {

struct FileReader {
    std::optional<uid_t> user = {};  ///< empty: anyone without special rights
    std::vector<gid_t> groups = {};  ///< the first is the process's own
    bool passes_modes = false;       ///< root, unless it has dropped that right

    /** The user of a process; empty if it isn't a brumecpd on this machine or can't be seen. */
    static std::optional<FileReader> of_process(pid_t pid);
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

    /** The first of a file's folders that the reader can't enter, or the file if it can't read that. */
    struct Barrier {
        std::string path;
        bool is_folder;
        struct stat info;  ///< all zero if the path doesn't exist or we can't see it
    };
    /** `path` must be absolute and without links. Empty if nothing bars the reader. */
    std::optional<Barrier> barrier(const std::string& path) const;
    bool may_open(const std::string& path) const { return !barrier(path); }

 private:
    /** `right` is given as the bit for others: S_IROTH or S_IXOTH. */
    bool may(const struct stat& file, mode_t right) const;
};

}  // namespace brumectl
