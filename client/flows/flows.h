#pragma once
// `flows`: the flows of live traffic, once or again and again.

namespace CLI {
class App;
}

namespace brumectl {

class Context;

void add_flows(CLI::App& app, Context& context);

}  // namespace brumectl
