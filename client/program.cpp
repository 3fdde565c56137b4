#include "client/program.h"

#include <CLI/CLI.hpp>
#include <algorithm>

#include "client/interrupt.h"
#include "client/text/option_checks.h"
#include "client/words/completion.h"
#include "client/words/help.h"
#include "client/words/help_words.h"
#include "client/words/line_complaints.h"
#include "client/words/method_words.h"
#include "client/words/typed_line.h"
#include "client/words/words.h"

namespace brumectl {

namespace {

void add_options(CLI::App& app, Options& options) {
    app.add_option("-s,--socket", options.address,
                   "Where the daemon listens: path of its Unix socket, IP:PORT or localhost:PORT")
        ->type_name("ADDRESS")
        ->check(not_empty());
    app.add_option("--timeout", options.timeout_sec, "Seconds to wait for a reply")
        ->type_name("SECONDS")
        ->check(seconds_between(0.001, 86400))
        ->capture_default_str();
    app.add_flag("--json", options.json, "Print replies as the daemon sent them");
    app.add_flag("--result", options.result, "Print only the result of a reply, as JSON");
    app.set_version_flag("--version", version_text(), "Print the program's version");
    app.set_help_flag("-h,--help", "Print help for the program or a command");
}

}  // namespace

Program::Program(const Options& defaults)
    : m_options(defaults),
      m_context(m_options),
      m_app(std::make_unique<CLI::App>(
          "Asks brumecpd, the control-plane daemon of a traffic-classification engine.", "brumectl")) {
    m_app->require_subcommand(1);
    m_app->fallthrough();
    add_options(*m_app, m_options);
    add_words(*m_app, m_context);
    take_as_typed(*m_app);
    m_app->footer(
        "Without --socket, the daemon is looked for at $BRUMECTL_SOCKET or, if that isn't set, at "
        "/run/brumecpd/brumecpd.sock and 127.0.0.1:4040. After --, nothing is an option.\n"
        "\n"
        "Exit status: 0 success, 1 refused or failed, 2 bad command line, 3 no daemon, 4 no reply in time.");
}

Program::~Program() = default;

void Program::complain_with_usage(const std::string& text) const {
    const CLI::App& word = innermost(*m_app);
    const HelpStyle style = help_style(m_context.err(), m_options.in_shell);
    const std::string help = typed_name(word, false).substr(sizeof("brumectl") - 1);
    m_context.complain(text + (text.rfind("unknown command", 0) == 0 ? m_hint : ""));
    fprintf(stderr, "%s\nTry: %shelp%s\n", usage_text(word, style).c_str(),
            m_options.in_shell ? "" : "brumectl ", help.c_str());
}

/**
 * Adds the words of the engine's methods if such a word is missing or all are to be listed. False if there
 * are none.
 */
bool Program::learn_missing(bool is_help) {
    if (!m_app->get_subcommands().empty()) return false;
    const std::vector<std::string> unknown = m_app->remaining(true);
    const auto word = std::find_if(unknown.begin(), unknown.end(),
                                   [](const std::string& text) { return text.rfind('-', 0) != 0; });
    if (word == unknown.end()) return is_help && add_engine_words(*m_app, m_context, true);
    if (word->find('.') == std::string::npos) return false;
    try {
        return add_engine_words(*m_app, m_context, false);
    } catch (const Failure& e) {
        m_hint = std::string("; an engine's own are known while it can be asked, but: ") + e.what();
        return false;
    }
}

void Program::learn_words(const std::vector<std::string>& before) {
    if (completes_engine_words(*m_app, before)) add_engine_words(*m_app, m_context, true);
}

void Program::parse(const std::vector<std::string>& words) {
    const auto reversed = [&] {  // the parser takes them from the end
        const std::vector<std::string> prepared = for_parser(*m_app, words);
        return std::vector<std::string>(prepared.rbegin(), prepared.rend());
    };
    try {
        m_app->parse(reversed());
    } catch (const CLI::ParseError& e) {
        const bool is_help = dynamic_cast<const CLI::CallForHelp*>(&e) != nullptr;
        if (dynamic_cast<const CLI::CallForVersion*>(&e) != nullptr || !learn_missing(is_help)) throw;
        m_app->parse(reversed());
    }
}

/** The parser reports help and version as exceptions. */
void Program::carry_out(const std::vector<std::string>& words) {
    try {
        parse(words);
    } catch (const CLI::CallForHelp&) {
        m_context.out().print(help_text(innermost(*m_app), help_style(m_context.out(), m_options.in_shell)));
    } catch (const CLI::CallForVersion&) {
        m_context.out().print(version_text() + "\n");
    }
    m_context.out().flush();
}

exit_status_e Program::run(const std::vector<std::string>& words) {
    try {
        carry_out(words);
        return EXIT_OK;
    } catch (const CLI::ParseError& e) {
        complain_with_usage(complaint_of(e, *m_app));
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
        // Out of memory, above all. Nothing else catches it, and uncaught it would leave temporary
        // files behind.
        m_context.complain(e.what());
        return EXIT_ERROR;
    }
}

}  // namespace brumectl
