#pragma once
// What the daemon has left of crashes and stalls: `evidence ls|show|prune`.

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace brumectl {

class Context;
struct Evidence;

void add_evidence(CLI::App& app, Context& context);
/** What lies in a directory; where none is named, in the daemon's. @throws Failure, Interrupted */
std::vector<Evidence> find_evidence(Context& context, const std::string& dir);

}  // namespace brumectl
