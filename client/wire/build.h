#pragma once
// The builds of the daemon, which differ in what they refuse. In slave mode a host system owns the data path;
// on bare metal nobody hands out shared memory.

#include <optional>
#include <string>

namespace brumectl {

class Daemon;

struct Build {
    bool slave_mode = true;
    bool bare_metal = false;

    /** "daemon in slave mode" or "standalone daemon", followed by "for bare metal" if that applies. */
    std::string text() const;
};

/** The build of the daemon that this program was built and packaged with. */
Build packaged_build();
/**
 * Determined from the line of the daemon's log that shows its attributes, or else from how it refuses
 * an `attach` without an interface. Empty if it isn't one of ours. Throws what Daemon::call throws,
 * except ErrorReply.
 */
std::optional<Build> build_of(Daemon& daemon);

}  // namespace brumectl
