#pragma once
// The daemon's log as read by the words: through its method, or from its file.

#include <json/value.h>

#include <cstddef>
#include <string>
#include <vector>

namespace brumectl {

class Daemon;

/** Oldest first. Throws what Daemon::call throws. */
std::vector<std::string> last_log_lines(Daemon& daemon, unsigned count);
/** The strings of `log` in the method's result. */
std::vector<std::string> lines_of_log(const Json::Value& result);
/**
 * The method's result. It ends for good at the first line that is too long for the daemon; if that happens
 * and the file can be read from here, the result has the lines of the file. Throws what Daemon::call throws.
 */
Json::Value log_beyond_long_lines(Daemon& daemon, unsigned count);

/** Complete lines, oldest first, from a file's last `max_bytes` bytes; empty if it can't be read. */
std::vector<std::string> last_lines_of_file(const std::string& path, size_t count = SIZE_MAX,
                                            size_t max_bytes = 65536);
/** The last line of level ERROR since the daemon's last start, without its prefix; empty if there is none. */
std::string last_error(const std::vector<std::string>& lines);

/**
 * The index in `window`, the log's last lines, of the first line after `seen`, the last lines known before.
 * The window's size if there are no new lines; npos if the window doesn't reach back to `seen`.
 */
size_t first_new_line(const std::vector<std::string>& seen, const std::vector<std::string>& window);

}  // namespace brumectl
