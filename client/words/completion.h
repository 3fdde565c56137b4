#pragma once
// What can come next on a command line, derived from the words themselves: for Tab in our own shell, and for
// the scripts that let other shells ask the same (`completion_scripts.h`).
//
// Values are known if an option's type name lists them ("a|b|c", or METHOD: a method's name), or if
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
    std::vector<Candidate> candidates = {};  ///< in order, without duplicates
    bool files = false;                      ///< the value is unknown: it may be a file's name
};

/** The words directly below `app`, except hidden ones. */
std::vector<const CLI::App*> words_of(const CLI::App& app);
std::vector<std::string> word_names(const CLI::App& app);
/** "-f", "--follow"; empty for a positional. */
std::vector<std::string> dashed_names(const CLI::Option& option);
/** Names of the options of the word and of the program, with their dashes. */
std::vector<std::string> option_names(const CLI::App& program, const CLI::App& word);
/** The values that an option takes; empty if they can't be listed. */
std::vector<std::string> value_choices(const CLI::Option& option);
/** Whether words of an engine's methods may follow `before`, or already occur in it. */
bool completes_engine_words(const CLI::App& program, const std::vector<std::string>& before);
/**
 * The completions after `before` that start with `prefix`. `defaults` apply unless the line names another
 * daemon. May query the daemon, see `known_names`.
 */
Completion complete(const CLI::App& program, const Options& defaults, const std::vector<std::string>& before,
                    const std::string& prefix);

}  // namespace brumectl
