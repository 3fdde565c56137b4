#include "client/words/reference_words.h"

#include <CLI/CLI.hpp>

#include "client/context.h"
#include "client/failure.h"
#include "client/shell/split.h"
#include "client/text/complaints.h"
#include "client/text/method_table.h"
#include "client/words/completion.h"
#include "client/words/completion_scripts.h"
#include "client/words/line_complaints.h"
#include "client/words/man_tables.h"
#include "client/words/method_words.h"

namespace brumectl {

namespace {

/** Prints the built-in table and the methods of the loaded engine. */
void print_schema(Context& context, const std::string& name) {
    const MethodTable& table = MethodTable::get();
    const Method* method = table.find(name);
    const MethodTable* engine = method == nullptr ? context.engine_methods(true) : nullptr;
    if (method == nullptr && engine != nullptr) method = engine->find(name);
    if (method != nullptr) return context.print_json(*method->document);
    if (!name.empty()) {
        std::vector<std::string> known = table.names();
        if (engine != nullptr)
            for (const std::string& own : engine->names())
                known.push_back(own);
        throw Usage("no method '" + name + "'" + did_you_mean(name, known));
    }
    Json::Value document = table.document();
    if (engine != nullptr)
        for (const Json::Value& own : engine->document()["methods"])
            document["methods"].append(own);
    context.print_json(document);
}

void add_schema(CLI::App& app, Context& context) {
    auto method = std::make_shared<std::string>();
    CLI::App* word = app.add_subcommand("schema", "Print an OpenRPC document of the methods");
    word->add_option("method", *method, "Only this method")->type_name("METHOD");
    word->callback([&context, method] { print_schema(context, *method); });
}

/** Adds a positional that takes one of a few words. */
std::shared_ptr<std::string> add_choice(CLI::App& word, const std::string& name,
                                        const std::string& description,
                                        const std::vector<std::string>& choices) {
    auto chosen = std::make_shared<std::string>();
    auto judge = [choices](std::string& text) -> std::string {
        if (std::find(choices.begin(), choices.end(), text) != choices.end()) return "";
        return choice_complaint(choices, text);
    };
    word.add_option(name, *chosen, description)
        ->required()
        ->type_name(CLI::detail::join(choices, "|"))
        ->check(CLI::Validator(judge, ""));
    return chosen;
}

void print_candidates(CLI::App& app, Context& context, const std::string& line) {
    std::vector<std::string> words = split_unfinished(line);
    const std::string last = words.back();
    words.pop_back();
    if (!words.empty()) words.erase(words.begin());  // the program's name
    if (completes_engine_words(app, words)) add_engine_words(app, context, true);
    const Completion found = complete(app, context.options(), words, last);
    for (const Candidate& one : found.candidates)
        context.out().print(one.text + "\t" + one.description + "\n");
    if (found.candidates.empty() && found.files) throw Failure("it may be the name of a file");
}

/**
 * Called by the scripts. An option, because the parser leaves an option's value as it is whatever it
 * looks like.
 */
void add_complete(CLI::App& app, Context& context) {
    auto line = std::make_shared<std::string>();
    CLI::App* word = app.add_subcommand("complete", "List what can come next on a line");
    word->group("");
    word->add_option("--line", *line, "The line up to the cursor, starting with the program's name")
        ->required();
    word->callback([&app, &context, line] { print_candidates(app, context, *line); });
}

}  // namespace

void add_reference_words(CLI::App& app, Context& context) {
    add_schema(app, context);
    CLI::App* completion = app.add_subcommand("completion", "Print a shell's completion script");
    auto shell = add_choice(*completion, "shell", "The shell", completed_shells());
    completion->callback([&context, shell] { context.out().print(completion_script(*shell)); });
    add_complete(app, context);

    CLI::App* man = app.add_subcommand("man-tables", "Print sections of the manual page in scdoc format");
    man->group("");
    man->callback([&app, &context] { context.out().print(man_words(app)); });
}

}  // namespace brumectl
