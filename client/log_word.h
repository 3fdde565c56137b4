#pragma once
// `log`: the daemon's last log lines, new ones as they come, and its levels.

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace brumectl {

class Context;

void add_log(CLI::App& app, Context& context);

/**
 * Where in `window`, the log's last lines, those begin that come behind `seen`, the last ones known before.
 * The window's size if there are none; npos if the window doesn't reach back to what has been seen.
 */
size_t first_new_line(const std::vector<std::string>& seen, const std::vector<std::string>& window);

}  // namespace brumectl
