#pragma once
// Examples to type: two lines per word, shown by `help` and in the manual page.

#include <string>
#include <vector>

namespace brumectl {

struct Example {
    const char* word;  ///< "" for the program itself, "evidence ls" for a nested word
    const char* line;  ///< without the program's name, as typed in a shell
    const char* what;  ///< what it does, a phrase with an initial capital
};

/** In the order in which they are shown. Empty if there is no such word. */
std::vector<Example> examples_of(const std::string& word);

}  // namespace brumectl
