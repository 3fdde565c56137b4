#pragma once
// `evidence ls|show|prune`: what the daemon has left of crashes and stalls.

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace brumectl {

class Context;
struct Evidence;

void add_evidence(CLI::App& app, Context& context);
/** The evidence in a directory; in the daemon's if none is named. Throws Failure, Interrupted. */
std::vector<Evidence> find_evidence(Context& context, const std::string& dir);

}  // namespace brumectl
