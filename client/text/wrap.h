#pragma once
// Wraps the program's own text to a terminal's width, `drawn` as the terminal can show it.

#include <cstddef>
#include <string>

namespace brumectl {

/**
 * Breaks a text between words; a word that is too long stays whole. All lines but the first are indented by
 * `indent` blanks; the first is assumed to start at column `indent`. No line feed at the end.
 */
std::string wrapped(const std::string& text, size_t indent, size_t width);
/**
 * Likewise for several paragraphs. Consecutive lines form one paragraph; an indented line starts an entry, "
 * term  text", whose text is aligned after its term. Ends with a line feed.
 */
std::string reflowed(const std::string& text, size_t width);

}  // namespace brumectl
