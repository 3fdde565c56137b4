#pragma once
// Between what was typed and the parser, which has ways of its own: it takes words in brackets apart, and an
// option's empty value for none. Here it gets words that it leaves as they are.

#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace brumectl {

/**
 * The words for the parser. Behind "--" nothing is an option; "help" or "?" as all that stands behind a word
 * asks for its help.
 */
std::vector<std::string> for_parser(const CLI::App& program, const std::vector<std::string>& typed);
/** Lets all options of `program` take what `for_parser` makes as it was typed. Before the first line is
 * parsed. */
void take_as_typed(CLI::App& program);
/** A word that `for_parser` made, as it was typed. */
std::string as_typed(const std::string& word);

/** The option with this name, dashes included, where `word` stands: of it or of a word above. Null: none. */
const CLI::Option* find_option(const CLI::App& word, const std::string& name);
/** The word with this name right below `app`, be it hidden. Null: none. */
const CLI::App* find_word(const CLI::App& app, const std::string& name);

}  // namespace brumectl
