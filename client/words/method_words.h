#pragma once
// A word for each method of the table: its parameters are the word's options, typed and checked.

namespace CLI {
class App;
}

namespace brumectl {

class Context;

/** All but those that have a file of their own, such as `log`. */
void add_method_words(CLI::App& app, Context& context);
/**
 * The same for the methods of the engine that is loaded, if it describes some: then true. A daemon that isn't
 * there or takes too long has none. @throws Failure instead of that, unless `quietly`
 */
bool add_engine_words(CLI::App& app, Context& context, bool quietly);

}  // namespace brumectl
