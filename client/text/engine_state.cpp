#include "client/text/engine_state.h"

#include <algorithm>

#include "client/text/fields.h"
#include "client/text/json_access.h"
#include "client/text/method_table.h"

namespace brumectl {

const std::vector<std::string>& state_words() {
    static const std::vector<std::string> words = choices_of(
        member_of(*MethodTable::get().find("status")->document, {"result", "schema", "properties", "state"}));
    return words;
}

std::optional<engine_state_e> state_of(const std::string& word) {
    const auto found = std::find(state_words().begin(), state_words().end(), word);
    if (found == state_words().end()) return std::nullopt;
    return static_cast<engine_state_e>(found - state_words().begin());
}

Terminal::colour_e state_colour(const std::string& word) {
    const auto state = state_of(word);
    if (!state) return Terminal::PLAIN;
    return *state >= ACTIVE ? Terminal::GREEN : Terminal::YELLOW;
}

}  // namespace brumectl
