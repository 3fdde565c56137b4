#pragma once
// The words of the command line, one function per family. Each adds its subcommands with their options and a
// callback that does the work; a callback may throw any Failure. `add_words` in words.cpp lists all of them
// on one screen.

#include <memory>

namespace CLI {
class App;
}

namespace brumectl {

class Context;

/** `context` must outlive `app`. */
void add_words(CLI::App& app, Context& context);

}  // namespace brumectl
