#pragma once
// Start-up configurations: `check FILE…` judges them, `run FILE` plays one against a daemon that runs.

namespace CLI {
class App;
}

namespace brumectl {

class Context;

void add_check(CLI::App& app, Context& context);
void add_run(CLI::App& app, Context& context);

}  // namespace brumectl
