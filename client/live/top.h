#pragma once
// `top`: the daemon and its traffic as they are now.

namespace CLI {
class App;
}

namespace brumectl {

class Context;

void add_top(CLI::App& app, Context& context);

}  // namespace brumectl
