#pragma once
// What has happened and what happens in the daemon: `events`.

namespace CLI {
class App;
}

namespace brumectl {

class Context;

void add_live_events(CLI::App& app, Context& context);

}  // namespace brumectl
