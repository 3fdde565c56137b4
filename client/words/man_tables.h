#pragma once
// The part of the manual page about words, in scdoc's language, generated from the program itself.

#include <string>

namespace CLI {
class App;
}

namespace brumectl {

/**
 * The section of the program's options, then one for each group of words: "## word", its usage, what it does,
 * a list of its parameters and options, examples.
 */
std::string man_words(const CLI::App& program);

}  // namespace brumectl
