#pragma once
// The scripts that add completion to other shells. Each of them asks this program, with the hidden
// word `complete`.

#include <string>
#include <vector>

namespace brumectl {

/** "bash", "zsh" and "fish". */
std::vector<std::string> completed_shells();
/** `shell` must be one of these. */
const char* completion_script(const std::string& shell);

}  // namespace brumectl
