#pragma once
// The daemon's and its engine's comings and goings: `wait` until something is so, `reload` swaps the engine.

namespace CLI {
class App;
}

namespace brumectl {

class Context;

void add_wait(CLI::App& app, Context& context);
void add_reload(CLI::App& app, Context& context);

}  // namespace brumectl
