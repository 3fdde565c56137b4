#pragma once
// What can stand next on a command line, read from the words as they are: for Tab in our own shell, and for
// the scripts that let other shells ask the same (`completion_scripts.h`).
//
// Values are known where an option's type name lists them ("a|b|c", or METHOD: a method's name), and where
// `known_names.h` can learn them from the running system.

#include <string>
#include <vector>

#include "client/words/known_names.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace brumectl {

struct Completion {
    std::vector<Candidate> candidates = {};  ///< in order, each once
    bool files = false;                      ///< nothing is known of the value: it may be a file's name
};

/** The words right below `app`, hidden ones left out. */
std::vector<const CLI::App*> words_of(const CLI::App& app);
std::vector<std::string> word_names(const CLI::App& app);
/** "-f", "--follow"; none for a positional. */
std::vector<std::string> dashed_names(const CLI::Option& option);
/** Names of the options of a word and of the program, with their dashes. */
std::vector<std::string> option_names(const CLI::App& program, const CLI::App& word);
/** The values that an option takes; empty if they can't be listed. */
std::vector<std::string> value_choices(const CLI::Option& option);
/** Whether the words of an engine's methods may stand behind `before`, or do so there. */
bool completes_engine_words(const CLI::App& program, const std::vector<std::string>& before);
/**
 * Of what can stand behind `before`, that which begins with `prefix`. `defaults` hold where the line doesn't
 * name another daemon. May ask the daemon, see `known_names`.
 */
Completion complete(const CLI::App& program, const Options& defaults, const std::vector<std::string>& before,
                    const std::string& prefix);

}  // namespace brumectl
