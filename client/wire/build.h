#pragma once
// The builds of the daemon, which refuse different things. In slave mode a host system owns the data path; on
// bare metal nobody hands out shared memory.

#include <optional>
#include <string>

namespace brumectl {

class Daemon;

struct Build {
    bool slave_mode = true;
    bool bare_metal = false;

    /** "daemon in slave mode", "standalone daemon", with "for bare metal" where it is. */
    std::string text() const;
};

/** That of the daemon which this program was built and packaged with. */
Build packaged_build();
/**
 * What the daemon shows: the line of its log that tells its attributes, else how it refuses an `attach` that
 * names no interface. Nothing if it isn't one of ours. @throws what Daemon::call throws but ErrorReply
 */
std::optional<Build> build_of(Daemon& daemon);

}  // namespace brumectl
