#include "client/words/shell_word.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>

#include "client/context.h"
#include "client/failure.h"
#include "client/interrupt.h"
#include "client/program.h"
#include "client/shell/line_editor.h"
#include "client/shell/line_source.h"
#include "client/shell/split.h"
#include "client/words/completion.h"
#include "client/words/help_words.h"

namespace brumectl {

namespace {

/** No failure: nothing is to be told. */
struct LeaveShell {};

/** Any error has been reported when this returns. */
exit_status_e run_line(const Options& options, const std::string& line) {
    std::vector<std::string> words;
    try {
        words = split_words(line);
        if (words.empty()) return EXIT_OK;
    } catch (const Usage& e) {
        Context(options).complain(e.what());
        return EXIT_USAGE;
    }
    return Program(options).run(words);
}

void run_script(const Options& options) {
    LineSource source(STDIN_FILENO);
    std::string line;
    for (size_t number = 1; source.next(line); ++number) {
        interrupt::check();
        exit_status_e status = run_line(options, line);
        if (status != EXIT_OK) throw Failure("line " + std::to_string(number) + " failed, stopping", status);
    }
}

std::vector<std::string> candidates(const Options& options, const std::string& typed, std::string& last) {
    Options in_shell = options;
    in_shell.in_shell = true;
    Program program(in_shell);
    std::vector<std::string> words = split_unfinished(typed);
    last = words.back();
    words.pop_back();
    program.learn_words(words);
    std::vector<std::string> found;
    for (const Candidate& one : complete(program.app(), options, words, last).candidates)
        found.push_back(one.text);
    return found;
}

void run_interactively(const Options& options) {
    LineEditor editor("brumectl> ", history_path(), [&options](const std::string& typed, std::string& last) {
        return candidates(options, typed, last);
    });
    printf("%s: type help for the words, quit or Ctrl-D to leave\n", version_text().c_str());
    std::string line;
    for (;;) {
        try {
            if (!editor.next(line)) {
                printf("\n");
                return;
            }
            run_line(options, line);
        } catch (const Interrupted& e) {
            if (e.signum() != SIGINT) throw;
            interrupt::forget();
            printf("\n");
        }
    }
}

}  // namespace

void add_shell(CLI::App& app, Context& context) {
    CLI::App* word = app.add_subcommand("shell", "Read commands line by line, with history and completion");
    word->footer(
        "Ctrl-C discards the line or interrupts a running command; quit, exit and Ctrl-D leave. Input that "
        "isn't a terminal is a script: it stops at the first line that fails, with that line's exit status.");
    word->callback([&context] {
        Options options = context.options();
        if (options.in_shell) throw Usage("this is the shell already");
        options.in_shell = true;
        try {
            if (isatty(STDIN_FILENO) != 0 && context.out().interactive())
                run_interactively(options);
            else
                run_script(options);
        } catch (const LeaveShell&) {
            // As asked.
        }
    });
}

void add_leave_words(CLI::App& app) {
    for (const char* name : {"quit", "exit"})
        app.add_subcommand(name, "Leave the shell, like Ctrl-D")->callback([] { throw LeaveShell(); });
}

}  // namespace brumectl
