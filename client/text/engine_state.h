#pragma once
// The engine's states, in the words of `status`. They come out of the method table.

#include <optional>
#include <string>
#include <vector>

#include "client/text/terminal.h"

namespace brumectl {

enum engine_state_e : unsigned { UNLOADED = 0, LOADED, ACTIVE, ATTACHED };

/** By engine_state_e. */
const std::vector<std::string>& state_words();
/** Nothing for a word that isn't one of ours. */
std::optional<engine_state_e> state_of(const std::string& word);
/** Green for an engine that works. */
Terminal::colour_e state_colour(const std::string& word);

}  // namespace brumectl
