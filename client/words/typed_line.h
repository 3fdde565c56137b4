#pragma once
// Between the typed words and the parser, which splits words in brackets and takes an option's empty value
// for none. This gives it words that it leaves alone.

#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace brumectl {

/**
 * The words for the parser. After "--" nothing is an option. A single "help" or "?" after a word asks for
 * its help.
 */
std::vector<std::string> for_parser(const CLI::App& program, const std::vector<std::string>& typed);
/**
 * Makes all options of `program` restore the words of `for_parser` to what was typed. Call before parsing the
 * first line.
 */
void take_as_typed(CLI::App& program);
/** The original form of a word made by `for_parser`. */
std::string as_typed(const std::string& word);

/** The option with this name, dashes included, of `word` or of a word above it. Null if there is none. */
const CLI::Option* find_option(const CLI::App& word, const std::string& name);
/** The word with this name directly below `app`, even if hidden. Null if there is none. */
const CLI::App* find_word(const CLI::App& app, const std::string& name);

}  // namespace brumectl
