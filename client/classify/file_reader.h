#pragma once
// Somebody who is to open a file: the daemon, as far as it can be told from here, or everybody. Judges by the
// modes alone; lists of further users and sandboxes aren't seen.

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "client/wire/daemon.h"

namespace brumectl {

struct FileReader {
    std::optional<uid_t> user = {};  ///< none: whoever has no right of his own
    std::vector<gid_t> groups = {};  ///< the first is the process's own
    bool passes_modes = false;       ///< root, as long as it hasn't given that right away

    /** From /proc where the daemon's process is there, else by the owner of its socket. Nothing: elsewhere.
     */
    static std::optional<FileReader> of_daemon(Daemon& daemon);
    static FileReader everybody() { return {}; }
    /** Our number is ours for the daemon, too, and what is open here can be opened by it, if it is our user.
     */
    static bool sees_processes_as_we_do(Daemon& daemon);

    /** An absolute path without links; its folders count, too. */
    bool may_open(const std::string& path) const;

 private:
    bool may(const std::string& path, mode_t right) const;
};

}  // namespace brumectl
