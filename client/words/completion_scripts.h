#pragma once
// The scripts that teach other shells to complete: each asks the program itself, by the hidden word
// `complete`.

#include <string>
#include <vector>

namespace brumectl {

/** "bash", "zsh" and "fish". */
std::vector<std::string> completed_shells();
/** `shell` is one of these. */
const char* completion_script(const std::string& shell);

}  // namespace brumectl
