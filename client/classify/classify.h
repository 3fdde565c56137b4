#pragma once
// `classify FILE…`: shows what is in capture files.

namespace CLI {
class App;
}

namespace brumectl {

class Context;

void add_classify(CLI::App& app, Context& context);

}  // namespace brumectl
