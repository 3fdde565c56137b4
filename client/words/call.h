#pragma once
// Any method by its name: `call METHOD`.

namespace CLI {
class App;
}

namespace brumectl {

class Context;

void add_call(CLI::App& app, Context& context);

}  // namespace brumectl
