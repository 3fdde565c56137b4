#pragma once
// A daemon on this machine, as far as /proc shows it: its working directory, and whether absolute paths mean
// the same file to both of us.

#include <sys/types.h>

#include <string>

#include "client/wire/address.h"

namespace brumectl {

class LocalDaemon {
 public:
    /** `pid` is the one reported by the daemon's `status`. */
    LocalDaemon(const Address& address, pid_t pid);

    /**
     * False if the daemon can't be examined: it is elsewhere, gone or somebody else's. Then no paths
     * are known.
     */
    bool visible() const { return !m_cwd.empty(); }
    /** Whether the file that the daemon calls `path` can be reached from here. */
    bool reaches(const std::string& path) const;
    /** Our name for the file that the daemon calls `path`; call only if `reaches`. */
    std::string path_of(const std::string& path) const;
    /** The folder of its engine, as the daemon's path; empty if that can't be seen or no engine is loaded. */
    std::string engine_folder() const;

 private:
    std::string m_proc = {};  ///< its folder in /proc
    std::string m_cwd = {};   ///< a path through /proc, valid even if the folder was renamed
    bool m_same_files;        ///< its absolute paths are ours; over TCP this has to be verified
};

/** False for a TCP address beyond the loopback network. */
bool on_this_machine(const Address& address);

}  // namespace brumectl
