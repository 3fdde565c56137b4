#pragma once
// The whole command line: options, words, and complaints about lines that make no sense. Created anew for
// each line, so that a line in the shell leaves nothing behind for the next.

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
    /** `defaults`: options that apply unless the line overrides them. */
    explicit Program(const Options& defaults = {});
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    /**
     * Takes words without the program's name. Prints any errors. Throws Interrupted; in the
     * shell, LeaveShell.
     */
    exit_status_e run(const std::vector<std::string>& words);
    const CLI::App& app() const { return *m_app; }
    /** Adds the words of the loaded engine's methods to `app` if `before` makes them necessary. */
    void learn_words(const std::vector<std::string>& before);

 private:
    void parse(const std::vector<std::string>& words);
    bool learn_missing(bool is_help);
    void carry_out(const std::vector<std::string>& words);
    void complain_with_usage(const std::string& text) const;

    Options m_options;
    Context m_context;
    std::unique_ptr<CLI::App> m_app;
    std::string m_hint = {};  ///< why an unknown word may be valid after all
};

}  // namespace brumectl
