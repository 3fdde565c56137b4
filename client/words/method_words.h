#pragma once
// A word for each method of the table: its parameters are the word's options, typed and checked.

namespace CLI {
class App;
}

namespace brumectl {

class Context;

/** All except those with their own file, such as `log`. */
void add_method_words(CLI::App& app, Context& context);
/**
 * Likewise for the loaded engine's methods. Returns true if it describes any; a daemon that is absent or too
 * slow has none. Throws Failure in that case unless `quietly`.
 */
bool add_engine_words(CLI::App& app, Context& context, bool quietly);

}  // namespace brumectl
