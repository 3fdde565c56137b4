#pragma once
// The whole command line: options, words, and what is said about a line that can't be meant. Made anew for
// each line, so that a shell's line leaves nothing behind for the next.

#include <memory>
#include <string>
#include <vector>

#include "client/context.h"
#include "client/failure.h"

namespace CLI {
class App;
}

namespace brumectl {

class Program {
 public:
    /** `defaults`: options that hold where the line doesn't say otherwise. */
    explicit Program(const Options& defaults = {});
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    /** Words without the program's name. Prints what goes wrong. @throws Interrupted, in the shell LeaveShell
     */
    exit_status_e run(const std::vector<std::string>& words);
    const CLI::App& app() const { return *m_app; }
    /** `app` knows the words of the loaded engine's methods, too, if these words make them needed. */
    void learn_words(const std::vector<std::string>& before);

 private:
    void parse(const std::vector<std::string>& words);
    bool learn_missing(bool is_help);
    void carry_out(const std::vector<std::string>& words);
    void complain_with_usage(const std::string& text) const;

    Options m_options;
    Context m_context;
    std::unique_ptr<CLI::App> m_app;
    std::string m_hint = {};  ///< why an unknown word may be one all the same
};

}  // namespace brumectl
