#pragma once
// `call METHOD`: any method by name.

namespace CLI {
class App;
}

namespace brumectl {

class Context;

void add_call(CLI::App& app, Context& context);

}  // namespace brumectl
