#pragma once
// `metrics`: the daemon's numbers for Prometheus.

namespace CLI {
class App;
}

namespace brumectl {

class Context;

void add_metrics(CLI::App& app, Context& context);

}  // namespace brumectl
