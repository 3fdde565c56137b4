#pragma once
// What to type: two lines for each word, shown by `help` and in the manual page.

#include <string>
#include <vector>

namespace brumectl {

struct Example {
    const char* word;  ///< "" for the program itself, "evidence ls" for a word below a word
    const char* line;  ///< without the program's name, as the shell takes it
    const char* what;  ///< what it does, a phrase that begins with a capital
};

/** In the order in which they are told. Empty if there's no such word. */
std::vector<Example> examples_of(const std::string& word);

}  // namespace brumectl
