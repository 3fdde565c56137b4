#pragma once
// The daemon's log as the other words read it.

#include <string>
#include <vector>

namespace brumectl {

class Daemon;

/** Oldest first. @throws what Daemon::call throws */
std::vector<std::string> last_log_lines(Daemon& daemon, unsigned count);
/** The same from the file; empty if it can't be read. Looks at no more than its last 64 KiB. */
std::vector<std::string> last_lines_of_file(const std::string& path);
/** The last line of level ERROR since the daemon's last start, without its head; empty if there's none. */
std::string last_error(const std::vector<std::string>& lines);

}  // namespace brumectl
