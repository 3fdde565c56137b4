#pragma once
// `log`: the daemon's last log lines, new ones as they come, and its levels.

namespace CLI {
class App;
}

namespace brumectl {

class Context;

void add_log(CLI::App& app, Context& context);

}  // namespace brumectl
