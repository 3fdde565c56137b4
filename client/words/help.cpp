#include "client/words/help.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <cstdlib>

#include "client/text/terminal.h"
#include "client/text/wrap.h"
#include "client/words/completion.h"
#include "client/words/examples.h"

namespace brumectl {

namespace {

constexpr size_t TERM_INDENT = 2;
constexpr size_t TEXT_COLUMN = 26;
/** If narrower, an entry's text goes below its term. */
constexpr size_t MIN_TWO_COLUMNS = 60;
constexpr size_t LOW_TEXT_COLUMN = 6;

/** Descriptions mark names for the manual. */
std::string without_marks(std::string text) {
    text.erase(std::remove(text.begin(), text.end(), '`'), text.end());
    return text;
}

/** A single sentence is shown in a list like any other phrase. */
std::string phrase(const std::string& description) {
    std::string text = without_marks(description);
    if (!text.empty() && text.back() == '.' && text.find(". ") == std::string::npos) text.pop_back();
    return text;
}

std::string entry(const std::string& term, const std::string& text, size_t width) {
    const std::string begin = std::string(TERM_INDENT, ' ') + drawn(term);
    if (text.empty()) return begin + "\n";
    const size_t column = width < MIN_TWO_COLUMNS ? LOW_TEXT_COLUMN : TEXT_COLUMN;
    const bool is_beside = columns(begin) + 2 <= column;
    return (is_beside ? padded(begin, column) : begin + "\n" + std::string(column, ' ')) +
           wrapped(text, column, width) + "\n";
}

bool takes_value(const CLI::Option& option) {
    return option.get_items_expected_max() > 0;
}

bool takes_several(const CLI::Option& option) {
    return option.get_items_expected_max() > 1;
}

/** "-n, --lines NUMBER", short names first; "files…". */
std::string term_of(const CLI::Option& option) {
    const std::string more = takes_several(option) ? "…" : "";
    if (option.get_positional()) return option.get_name(true) + more;
    std::vector<std::string> names;
    for (const std::string& name : option.get_snames())
        names.push_back("-" + name);
    for (const std::string& name : option.get_lnames())
        names.push_back("--" + name);
    std::stable_sort(names.begin(), names.end(),
                     [](const std::string& a, const std::string& b) { return a.size() < b.size(); });
    const std::string type = value_choices(option).empty() ? option.get_type_name() : "WORD";
    return CLI::detail::join(names, ", ") + (takes_value(option) ? " " + type + more : "");
}

std::string described(const CLI::Option& option) {
    std::vector<std::string> notes;
    if (option.get_required()) notes.emplace_back("required");
    if (option.get_type_name().find('|') != std::string::npos)
        notes.push_back("one of " + CLI::detail::join(value_choices(option), ", "));
    if (!option.get_default_str().empty()) notes.push_back("default: " + option.get_default_str());
    const std::string text = phrase(option.get_description());
    if (notes.empty()) return text;
    std::string note = CLI::detail::join(notes, "; ");
    if (text.empty() || text.back() != '.') return text + " (" + note + ")";
    note.front() = static_cast<char>(std::toupper(static_cast<unsigned char>(note.front())));
    return text + " " + note + ".";
}

bool is_shown(const CLI::App& word, const CLI::Option& option, bool positional) {
    const bool is_help = word.get_parent() != nullptr && &option == word.get_help_ptr();
    return option.get_positional() == positional && !option.get_group().empty() && !is_help;
}

std::string options_text(const CLI::App& word, bool positional, const HelpStyle& style) {
    std::string out;
    for (const CLI::Option* option : word.get_options())
        if (is_shown(word, *option, positional))
            out += entry(term_of(*option), described(*option), style.width);
    return out.empty() ? out : "\n" + std::string(positional ? "Arguments:" : "Options:") + "\n" + out;
}

/** In the order in which the groups first occur. */
std::string words_text(const CLI::App& app, const HelpStyle& style) {
    std::vector<std::pair<std::string, std::string>> groups;
    for (const CLI::App* word : words_of(app)) {
        const std::string group = word->get_group() == "Subcommands" ? "Commands" : word->get_group();
        auto found =
            std::find_if(groups.begin(), groups.end(), [&](const auto& g) { return g.first == group; });
        if (found == groups.end()) found = groups.insert(groups.end(), {group, ""});
        found->second += entry(word->get_name(), phrase(word->get_description()), style.width);
    }
    std::string out;
    for (const auto& [group, entries] : groups)
        out += "\n" + group + ":\n" + entries;
    return out;
}

std::string path_of(const CLI::App& word) {
    std::string path;
    for (const CLI::App* at = &word; at->get_parent() != nullptr; at = at->get_parent())
        path = at->get_name() + (path.empty() ? "" : " ") + path;
    return path;
}

std::string examples_text(const CLI::App& word, const HelpStyle& style) {
    std::string out;
    for (const Example& example : examples_of(path_of(word)))
        out += "  " + std::string(style.in_shell ? "" : "brumectl ") + example.line + "\n      " +
               wrapped(example.what, LOW_TEXT_COLUMN, style.width) + "\n";
    return out.empty() ? out : "\nExamples:\n" + out;
}

/** Options that apply to all words aren't repeated for each. */
std::string program_options_text(const CLI::App& word, const HelpStyle& style) {
    if (word.get_parent() == nullptr) return "";
    const CLI::App* program = &word;
    while (program->get_parent() != nullptr)
        program = program->get_parent();
    std::vector<std::string> names;
    for (const CLI::Option* option : program->get_options())
        names.push_back("--" + option->get_lnames().front());
    return "\n" +
           wrapped("Options of all commands: " + CLI::detail::join(names, ", ") + "; see " +
                       (style.in_shell ? "" : "brumectl ") + "help.",
                   0, style.width) +
           "\n";
}

}  // namespace

HelpStyle help_style(const Terminal& terminal, bool in_shell) {
    constexpr size_t LEAST = 20;
    const std::string wanted = std::getenv("COLUMNS") != nullptr ? std::getenv("COLUMNS") : "";
    size_t width = 0;
    std::from_chars(wanted.data(), wanted.data() + wanted.size(), width);
    if (width == 0) width = static_cast<size_t>(terminal.width());
    return {std::max(width, LEAST), in_shell};
}

std::string typed_name(const CLI::App& word, bool in_shell) {
    const std::string path = path_of(word);
    if (in_shell) return path;
    return path.empty() ? "brumectl" : "brumectl " + path;
}

std::string usage_text(const CLI::App& word, const HelpStyle& style) {
    std::string out = typed_name(word, style.in_shell) + " [OPTION…]";
    for (const CLI::Option* option : word.get_options())
        if (option->get_positional()) {
            const std::string term = term_of(*option);
            out += option->get_required() ? " " + term : " [" + term + "]";
        }
    if (!words_of(word).empty()) out += word.get_require_subcommand_min() > 0 ? " COMMAND" : " [COMMAND]";
    const std::string begin = "Usage: ";
    return begin + wrapped(out, begin.size(), style.width);
}

std::string help_text(const CLI::App& word, const HelpStyle& style) {
    std::string out = wrapped(without_marks(word.get_description()), 0, style.width) + "\n\n" +
                      usage_text(word, style) + "\n" + words_text(word, style) +
                      options_text(word, true, style) + options_text(word, false, style);
    if (!word.get_footer().empty()) out += "\n" + reflowed(without_marks(word.get_footer()), style.width);
    return out + examples_text(word, style) + program_options_text(word, style);
}

}  // namespace brumectl
