#pragma once
// The daemon's log as the words read it: by its method, or from its file.

#include <json/value.h>

#include <cstddef>
#include <string>
#include <vector>

namespace brumectl {

class Daemon;

/** Oldest first. @throws what Daemon::call throws */
std::vector<std::string> last_log_lines(Daemon& daemon, unsigned count);
/** The strings among `log` in the method's result. */
std::vector<std::string> lines_of_log(const Json::Value& result);
/**
 * The method's result, which ends for good at the first line that is too long for the daemon: then with the
 * lines of the file in it, where that can be read from here. @throws what Daemon::call throws
 */
Json::Value log_beyond_long_lines(Daemon& daemon, unsigned count);

/** Whole lines, oldest first, of a file's last `max_bytes` bytes; empty if it can't be read. */
std::vector<std::string> last_lines_of_file(const std::string& path, size_t count = SIZE_MAX,
                                            size_t max_bytes = 65536);
/** The last line of level ERROR since the daemon's last start, without its head; empty if there's none. */
std::string last_error(const std::vector<std::string>& lines);

/**
 * Where in `window`, the log's last lines, those begin that come behind `seen`, the last ones known before.
 * The window's size if there are none; npos if the window doesn't reach back to what has been seen.
 */
size_t first_new_line(const std::vector<std::string>& seen, const std::vector<std::string>& window);

}  // namespace brumectl
