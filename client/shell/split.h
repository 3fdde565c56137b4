#pragma once
// A line of the shell as words: blanks part them, quotes and backslashes keep blanks.

#include <string>
#include <vector>

namespace brumectl {

/** A comment, begun by a # that begins a word, is left out. @throws Usage for a quote that doesn't end */
std::vector<std::string> split_words(const std::string& line);
/** The same of a line that is still being typed: the last word may be empty, and its quotes open. */
std::vector<std::string> split_unfinished(const std::string& line);

}  // namespace brumectl
