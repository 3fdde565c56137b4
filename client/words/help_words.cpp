#include "client/words/help_words.h"

#include <CLI/CLI.hpp>

#include "client/context.h"
#include "client/failure.h"
#include "client/text/complaints.h"
#include "client/text/method_table.h"
#include "client/words/completion.h"
#include "client/words/help.h"
#include "client/words/method_words.h"
#include "client/words/typed_line.h"
#include "infra/json/corvo_json.h"

namespace brumectl {

namespace {

void print_help(CLI::App& program, Context& context, const std::vector<std::string>& path) {
    if (path.empty() || find_word(program, path[0]) == nullptr) add_engine_words(program, context, true);
    const CLI::App* word = &program;
    for (const std::string& name : path) {
        const CLI::App* inner = find_word(*word, name);
        if (inner == nullptr)
            throw Usage("unknown command '" + name + "'" + did_you_mean(name, word_names(*word)));
        word = inner;
    }
    context.out().print(help_text(*word, help_style(context.out(), context.options().in_shell)));
}

void print_version(Context& context) {
    Json::Value version;
    version["version"] = BRUMECTL_VERSION;
    context.out().print(context.json() ? corvo::json::write_line(version) : version_text() + "\n");
}

}  // namespace

void add_help_words(CLI::App& app, Context& context) {
    for (const char* name : {"help", "?"}) {
        auto path = std::make_shared<std::vector<std::string>>();
        CLI::App* word = app.add_subcommand(name, "Show what commands do and what they take");
        if (*name == '?') word->group("");
        word->footer(
            "COMMAND help, COMMAND ? and COMMAND --help show the same. To pass the word help as a value, put "
            "-- before it; echo and coffee take it as it is.");
        word->add_option("words", *path, "The command, and one of its own commands")->type_name("COMMAND");
        word->callback([&app, &context, path] { print_help(app, context, *path); });
    }
    CLI::App* version = app.add_subcommand("version", "Print the program's version");
    version->callback([&context] { print_version(context); });
}

std::string version_text() {
    return std::string("brumectl ") + BRUMECTL_VERSION;
}

}  // namespace brumectl
