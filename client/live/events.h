#pragma once
// `events`: what has happened and what is happening in the daemon.

namespace CLI {
class App;
}

namespace brumectl {

class Context;

void add_live_events(CLI::App& app, Context& context);

}  // namespace brumectl
