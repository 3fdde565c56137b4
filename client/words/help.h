#pragma once
// The help of a word, made from the word itself, its options and its examples.

#include <cstddef>
#include <string>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace brumectl {

class Terminal;

struct HelpStyle {
    size_t width = 80;      ///< columns
    bool in_shell = false;  ///< lines are typed without the program's name
};

/** As wide as $COLUMNS says, or else as the terminal. */
HelpStyle help_style(const Terminal& terminal, bool in_shell);
/** The complete help of a word, or of the program. Ends with a line feed. */
std::string help_text(const CLI::App& word, const HelpStyle& style);
/** "Usage: brumectl log [OPTION…]", without a line feed at the end. */
std::string usage_text(const CLI::App& word, const HelpStyle& style);
/** "brumectl evidence ls"; without the program's name in the shell. */
std::string typed_name(const CLI::App& word, bool in_shell);

}  // namespace brumectl
