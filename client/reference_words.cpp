#include "client/reference_words.h"

#include <CLI/CLI.hpp>

#include "client/complaints.h"
#include "client/completion.h"
#include "client/context.h"
#include "client/failure.h"
#include "client/man_tables.h"
#include "client/method_table.h"
#include "infra/corvo_json.h"

namespace brumectl {

namespace {

void print_schema(Context& context, const std::string& name) {
    const MethodTable& table = MethodTable::get();
    if (name.empty()) {
        context.out().print(MethodTable::text());
        return;
    }
    const Method* method = table.find(name);
    if (method == nullptr) throw Usage("no method '" + name + "'" + did_you_mean(name, table.names()));
    context.out().print(corvo::json::write_styled(*method->document));
}

void add_schema(CLI::App& app, Context& context) {
    auto method = std::make_shared<std::string>();
    CLI::App* word = app.add_subcommand("schema", "The methods for programs: an OpenRPC document");
    word->add_option("method", *method, "The entry of this one only")->type_name("METHOD");
    word->callback([&context, method] { print_schema(context, *method); });
}

/** A positional that is one of a few words. */
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

}  // namespace

void add_reference_words(CLI::App& app, Context& context) {
    add_schema(app, context);
    CLI::App* completion = app.add_subcommand("completion", "A script that completes this program's words");
    auto shell = add_choice(*completion, "shell", "The shell that reads it", {"bash", "zsh"});
    completion->callback([&app, &context, shell] { context.out().print(completion_script(app, *shell)); });

    CLI::App* man = app.add_subcommand("man-tables", "Fragments of the manual pages in scdoc's language");
    man->group("");
    auto which = add_choice(*man, "tables", "What they are of", {"methods", "words"});
    man->callback([&app, &context, which] {
        context.out().print(*which == "methods" ? man_methods() : man_words(app));
    });
}

}  // namespace brumectl
