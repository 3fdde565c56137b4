#pragma once
// Text of the program's own in lines that are no longer than a terminal is wide, `drawn` as it can show them.

#include <cstddef>
#include <string>

namespace brumectl {

/**
 * Breaks a text between its words; a word that is too long stays whole. Each line but the first begins with
 * `indent` blanks, the first is taken to begin at column `indent`. No line feed at the end.
 */
std::string wrapped(const std::string& text, size_t indent, size_t width);
/**
 * The same for several paragraphs. Lines that follow each other are one paragraph; one that is indented
 * begins an entry, "  term  text", whose text hangs behind its term. Ends with a line feed.
 */
std::string reflowed(const std::string& text, size_t width);

}  // namespace brumectl
