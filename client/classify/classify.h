#pragma once
// What is in capture files: `classify FILE…`.

namespace CLI {
class App;
}

namespace brumectl {

class Context;

void add_classify(CLI::App& app, Context& context);

}  // namespace brumectl
