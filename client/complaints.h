#pragma once
// What is said about a line that can't be meant. The parser's own texts are for programmers.

#include <cstdint>
#include <string>
#include <vector>

namespace CLI {
class App;
class ParseError;
}  // namespace CLI

namespace brumectl {

/** Of a line that `program` has just refused; one line, without a full stop. */
std::string complaint_of(const CLI::ParseError& error, const CLI::App& program);
/** The innermost word of the line that `program` has parsed last; the program itself if there's none. */
const CLI::App& innermost(const CLI::App& program);

/** "must be from 1 to 9, not '0'", to stand behind a name. */
std::string range_complaint(uint64_t least, uint64_t most, const std::string& text);
/** "must be one of a, b, not 'bb' (did you mean 'b'?)". */
std::string choice_complaint(const std::vector<std::string>& choices, const std::string& text);

}  // namespace brumectl
