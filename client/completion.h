#pragma once
// What can stand next on a command line, read from the words as they are: for the shell's Tab and for the
// scripts that teach bash and zsh the same.
//
// Values are known where an option's type name says so: "a|b|c" are choices, METHOD a method's name.

#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace brumectl {

/** The words right below `app`, hidden ones left out. */
std::vector<const CLI::App*> words_of(const CLI::App& app);
std::vector<std::string> word_names(const CLI::App& app);
/** Names of the options of a word and of the program, with their dashes. */
std::vector<std::string> option_names(const CLI::App& program, const CLI::App& word);
/** The values that an option takes; empty if they can't be listed. */
std::vector<std::string> value_choices(const CLI::Option& option);
/** Of what can stand behind `before`, that which begins with `prefix`. In order, each once. */
std::vector<std::string> candidates(const CLI::App& program, const std::vector<std::string>& before,
                                    const std::string& prefix);
/** A completion script. `shell` is "bash" or "zsh". */
std::string completion_script(const CLI::App& program, const std::string& shell);

}  // namespace brumectl
