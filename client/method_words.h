#pragma once
// A word for each method of the table: its parameters are the word's options, typed and checked.

namespace CLI {
class App;
}

namespace brumectl {

class Context;

/** All but those that have a file of their own, such as `log`. */
void add_method_words(CLI::App& app, Context& context);

}  // namespace brumectl
