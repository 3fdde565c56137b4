#pragma once
// Splits a line of the shell into words: blanks separate them; quotes and backslashes protect blanks.

#include <string>
#include <vector>

namespace brumectl {

/** Drops a comment, which begins with a # at the start of a word. Throws Usage for an unterminated quote. */
std::vector<std::string> split_words(const std::string& line);
/** The same for a line that is still being typed: the last word may be empty and its quotes open. */
std::vector<std::string> split_unfinished(const std::string& line);

}  // namespace brumectl
