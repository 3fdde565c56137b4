#pragma once
// `help`, also called `?`, and `version`.

#include <string>

namespace CLI {
class App;
}

namespace brumectl {

class Context;

void add_help_words(CLI::App& app, Context& context);

/** "brumectl 1.0.0". */
std::string version_text();

}  // namespace brumectl
