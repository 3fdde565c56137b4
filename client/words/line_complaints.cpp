#include "client/words/line_complaints.h"

#include <CLI/CLI.hpp>

#include "client/text/complaints.h"
#include "client/text/method_table.h"
#include "client/words/completion.h"
#include "client/words/typed_line.h"

namespace brumectl {

namespace {

std::string quoted(const std::string& text) {
    return "'" + text + "'";
}

std::string joined(const std::vector<std::string>& words) {
    return CLI::detail::join(words, ", ");
}

/** Of what the parser didn't expect, the first word tells people most. */
std::string unexpected(const std::string& first, const CLI::App& program, const CLI::App& word) {
    const std::string text = as_typed(first);
    if (text == first && text.size() > 1 && text.front() == '-') {
        const std::string name = text.substr(0, text.find('='));
        const bool is_long = name.size() > 2;  // a single letter is near to any other
        return "unknown option " + quoted(text) +
               (is_long ? did_you_mean(name, option_names(program, word)) : "");
    }
    if (!words_of(word).empty())
        return "unknown command " + quoted(text) + did_you_mean(text, word_names(word));
    return "unexpected argument " + quoted(text);
}

std::string missing(const CLI::App& word) {
    for (const CLI::Option* option : word.get_options()) {
        if (!option->get_required() || option->count() > 0) continue;
        const std::vector<std::string> choices = value_choices(*option);
        const bool are_few = option->get_type_name().find('|') != std::string::npos;
        return quoted(option->get_name()) + " is missing" + (are_few ? ": " + joined(choices) : "");
    }
    if (word.get_parent() == nullptr) return "a command is missing";
    return quoted(word.get_name()) + " needs a command: " + joined(word_names(word));
}

/** An option that got too many values, or none. */
std::string wrong_number(const std::string& name, const CLI::App& word) {
    const CLI::Option* option = find_option(word, name);
    if (option == nullptr) return quoted(name) + " needs a value";
    if (option->count() > static_cast<size_t>(std::max(option->get_items_expected_max(), 1)))
        return quoted(name) + " is given more than once";
    const bool has_choices = option->get_type_name().find('|') != std::string::npos;
    return quoted(name) + " needs " + (has_choices ? "one of " + joined(value_choices(*option)) : "a value");
}

}  // namespace

const CLI::App& innermost(const CLI::App& program) {
    const CLI::App* at = &program;
    while (!at->get_subcommands().empty())
        at = at->get_subcommands().back();
    return *at;
}

std::string complaint_of(const CLI::ParseError& error, const CLI::App& program) {
    const CLI::App& word = innermost(program);
    const std::vector<std::string> extra = program.remaining(true);
    if (!extra.empty()) return unexpected(extra.front(), program, word);
    if (dynamic_cast<const CLI::RequiredError*>(&error) != nullptr) return missing(word);
    const std::string text = error.what();
    // The others begin with the option's name.
    const size_t name_end = text.find(": ");
    if (name_end == std::string::npos) return text;
    const std::string name = text.substr(0, name_end);
    if (dynamic_cast<const CLI::ArgumentMismatch*>(&error) != nullptr) return wrong_number(name, word);
    if (dynamic_cast<const CLI::ValidationError*>(&error) != nullptr)
        return quoted(name) + " " + text.substr(name_end + 2);
    return text;
}

}  // namespace brumectl
