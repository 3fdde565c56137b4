#pragma once
// Fragments of manual pages in scdoc's language, made from what the program itself reads.

#include <string>

namespace CLI {
class App;
}

namespace brumectl {

/** The methods: "## name", a paragraph, a list of the parameters, the result's members. */
std::string man_methods();
/** The words of the command line: "## word", a paragraph, a list of options; first the program's own. */
std::string man_words(const CLI::App& program);

}  // namespace brumectl
