#pragma once
// A daemon on this machine, as far as /proc shows it: where its relative paths begin and whether an absolute
// path means the same file to both of us.

#include <sys/types.h>

#include <string>

#include "client/wire/address.h"

namespace brumectl {

class LocalDaemon {
 public:
    /** `pid` is what the daemon's `status` says. */
    LocalDaemon(const Address& address, pid_t pid);

    /** It can't be looked at: elsewhere, gone or somebody else's. Then no path can be told. */
    bool visible() const { return !m_cwd.empty(); }
    /** Whether what the daemon calls `path` can be reached from here. */
    bool reaches(const std::string& path) const;
    /** A name for what the daemon calls `path`; only if `reaches`. */
    std::string path_of(const std::string& path) const;
    /** Where it has its engine from, as its own path; empty if that can't be seen or none is loaded. */
    std::string engine_folder() const;

 private:
    std::string m_proc = {};  ///< its folder in /proc
    std::string m_cwd = {};   ///< as a path through /proc, good even where the folder was renamed
    bool m_same_files;        ///< its absolute paths are ours: over TCP it must be seen to be so
};

/** False for a TCP address beyond the loopback network. */
bool on_this_machine(const Address& address);

}  // namespace brumectl
