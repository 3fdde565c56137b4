#pragma once
// What the program's manual page tells of its words, in scdoc's language, made from what the program itself
// reads.

#include <string>

namespace CLI {
class App;
}

namespace brumectl {

/**
 * The section of the program's options, then one for each group of words: "## word", how it is typed, what it
 * does, a list of its parameters and options, examples.
 */
std::string man_words(const CLI::App& program);

}  // namespace brumectl
