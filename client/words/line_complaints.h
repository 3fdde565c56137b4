#pragma once
// What is said about a line that can't be meant. The parser's own texts are for programmers.

#include <string>

namespace CLI {
class App;
class ParseError;
}  // namespace CLI

namespace brumectl {

/** Of a line that `program` has just refused; one line, without a full stop. */
std::string complaint_of(const CLI::ParseError& error, const CLI::App& program);
/** The innermost word of the line that `program` has parsed last; the program itself if there's none. */
const CLI::App& innermost(const CLI::App& program);

}  // namespace brumectl
