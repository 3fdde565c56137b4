#pragma once
// The daemon's numbers for Prometheus: `metrics`.

namespace CLI {
class App;
}

namespace brumectl {

class Context;

void add_metrics(CLI::App& app, Context& context);

}  // namespace brumectl
