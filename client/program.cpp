#include "client/program.h"

#include <CLI/CLI.hpp>
#include <sstream>

#include "client/completion.h"
#include "client/interrupt.h"
#include "client/method_table.h"
#include "client/seconds.h"
#include "client/words.h"

namespace brumectl {

namespace {

class Help : public CLI::Formatter {
 public:
    Help() {
        column_width(30);
        label("REQUIRED", "(required)");
        label("OPTIONS", "OPTION…");
        label("SUBCOMMAND", "WORD");
        label("SUBCOMMANDS", "WORD");
    }

    std::string usage_line(const CLI::App& app) const {
        std::string name;
        for (const CLI::App* at = &app; at != nullptr; at = at->get_parent())
            name = at->get_name() + (name.empty() ? "" : " ") + name;
        std::string usage = make_usage(&app, name);
        size_t begin = usage.find_first_not_of('\n');
        return usage.substr(begin, usage.find('\n', begin) - begin);
    }
};

void add_options(CLI::App& app, Options& options) {
    app.add_option("-s,--socket", options.address, "The daemon: the path of its Unix socket, or IP:PORT")
        ->type_name("ADDRESS");
    app.add_option("--timeout", options.timeout_sec, "Seconds to wait for an answer, 10 if not given")
        ->type_name("SECONDS")
        ->check(seconds_between(0.001, 86400));
    app.add_flag("--json", options.json, "Answers as the daemon gave them");
    app.set_version_flag("--version", std::string("brumectl ") + BRUMECTL_VERSION, "Version of the program");
    app.set_help_flag("-h,--help", "Help of the program or of a word");
}

/** The innermost word of what was typed. */
const CLI::App& innermost(const CLI::App& app) {
    const CLI::App* at = &app;
    while (!at->get_subcommands().empty())
        at = at->get_subcommands().back();
    return *at;
}

}  // namespace

Program::Program(const Options& defaults)
    : m_options(defaults),
      m_context(m_options),
      m_app(std::make_unique<CLI::App>(
          "Asks brumecpd, the control-plane daemon of a traffic-classification engine.", "brumectl")) {
    m_app->formatter(std::make_shared<Help>());
    m_app->require_subcommand(1);
    m_app->fallthrough();
    add_options(*m_app, m_options);
    add_words(*m_app, m_context);
    for (CLI::App* word :
         m_app->get_subcommands([](const CLI::App* sub) { return sub->get_group() == "Subcommands"; }))
        word->group("Words");
    m_app->footer(
        "The daemon is looked for at $BRUMECTL_SOCKET, else at /run/brumecpd/brumecpd.sock and "
        "127.0.0.1:4040.\n"
        "Exit status: 0 done, 1 refused or failed, 2 bad command line, 3 no daemon, 4 no answer in time.");
}

Program::~Program() = default;

void Program::complain_with_usage(const std::string& text) const {
    m_context.complain(text);
    fprintf(stderr, "%s\nTry --help.\n", Help().usage_line(innermost(*m_app)).c_str());
}

/** Of what the parser didn't expect, the first word tells people most. */
std::string Program::parse_complaint(const std::string& otherwise) const {
    const CLI::App& word = innermost(*m_app);
    std::vector<std::string> unknown = m_app->remaining(true);
    if (unknown.empty())
        return word.get_parent() == nullptr && m_app->get_subcommands().empty() ? "a word is missing"
                                                                                : otherwise;
    const std::string& first = unknown.front();
    if (first.rfind('-', 0) == 0) {
        std::string name = first.substr(0, first.find('='));
        return "unknown option '" + first + "'" + did_you_mean(name, option_names(*m_app, word));
    }
    if (!word.get_subcommands({}).empty())
        return "unknown word '" + first + "'" + did_you_mean(first, word_names(word));
    return "'" + first + "' is one word too many";
}

/** Help and version come as exceptions from the parser. */
void Program::carry_out(const std::vector<std::string>& words) {
    m_options.typed = words;
    try {
        // The parser takes them from the end.
        m_app->parse(std::vector<std::string>(words.rbegin(), words.rend()));
    } catch (const CLI::Success& e) {
        std::ostringstream text;
        m_app->exit(e, text, text);
        m_context.out().print(text.str());
    }
    m_context.out().flush();
}

exit_status_e Program::run(const std::vector<std::string>& words) {
    try {
        carry_out(words);
        return EXIT_OK;
    } catch (const CLI::ParseError& e) {
        complain_with_usage(parse_complaint(e.what()));
        return EXIT_USAGE;
    } catch (const Usage& e) {
        complain_with_usage(e.what());
        return EXIT_USAGE;
    } catch (const Failure& e) {
        m_context.complain(e.what());
        return e.status();
    } catch (const Interrupted&) {
        throw;
    } catch (const std::exception& e) {
        // No memory, above all. Nothing else catches it, and uncaught it would leave temporary files behind.
        m_context.complain(e.what());
        return EXIT_ERROR;
    }
}

}  // namespace brumectl
