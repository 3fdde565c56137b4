#pragma once
// What the daemon has left of crashes and stalls: `evidence ls|show|prune`.

namespace CLI {
class App;
}

namespace brumectl {

class Context;

void add_evidence(CLI::App& app, Context& context);

}  // namespace brumectl
