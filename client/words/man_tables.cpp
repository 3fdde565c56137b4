#include "client/words/man_tables.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <sstream>

#include "client/words/completion.h"
#include "client/words/examples.h"

namespace brumectl {

namespace {

/** Escapes text that means something to scdoc. A name between backticks becomes bold. */
std::string escape(const std::string& text) {
    std::string out;
    for (char c : text) {
        if (c == '`') {
            out += '*';
            continue;
        }
        if (std::string("\\*_#.~[]|<>+-").find(c) != std::string::npos) out += '\\';
        out += c;
    }
    return out;
}

std::string bold(const std::string& text) {
    return "*" + escape(text) + "*";
}

std::string italic(const std::string& text) {
    return "_" + escape(text) + "_";
}

std::string entry(const std::string& term, const std::string& text) {
    return term + "\n\t" + text + "\n\n";
}

std::string paragraph(const std::string& text) {
    return text.empty() ? "" : escape(text) + "\n\n";
}

/** Consecutive lines form one paragraph; "  term  text" is an entry of a list. */
std::string paragraphs(const std::string& text) {
    std::string out;
    std::string term;
    std::string flow;
    const auto end = [&] {
        out += term.empty() ? paragraph(flow) : entry(bold(term), escape(flow));
        term.clear();
        flow.clear();
    };
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const size_t begin = std::min(line.find_first_not_of(' '), line.size());
        const size_t gap = line.find("  ", begin);
        if (line.empty() || (begin > 0 && gap != std::string::npos)) end();
        if (begin > 0 && gap != std::string::npos) {
            term = line.substr(begin, gap - begin);
            line.erase(0, line.find_first_not_of(' ', gap));
        } else {
            line.erase(0, begin);
        }
        flow += (flow.empty() ? "" : " ") + line;
    }
    end();
    return out;
}

bool takes_several(const CLI::Option& option) {
    return option.get_items_expected_max() > 1;
}

/** "WORD" if there are only a few choices, which the text lists. */
std::string value_name(const CLI::Option& option) {
    const std::string type = option.get_type_name();
    const bool listed = type.find('|') != std::string::npos || type.find('{') != std::string::npos;
    return italic(listed ? "WORD" : type.substr(0, type.find(':'))) + (takes_several(option) ? "..." : "");
}

std::string term_of(const CLI::Option& option) {
    if (option.get_positional()) return italic(option.get_name(true)) + (takes_several(option) ? "..." : "");
    std::string term;
    for (const std::string& name : dashed_names(option))
        term += (term.empty() ? "" : ", ") + bold(name);
    return term + (option.get_items_expected_max() > 0 ? " " + value_name(option) : "");
}

std::string listed(const std::vector<std::string>& words) {
    std::string out;
    for (size_t i = 0; i < words.size(); ++i)
        out += (i == 0 ? "" : i + 1 == words.size() ? " or " : ", ") + bold(words[i]);
    return out;
}

/** Sentences: what it is, the allowed values, and the default. */
std::string described(const CLI::Option& option) {
    std::string out = escape(option.get_description());
    const auto add = [&out](const std::string& sentence) {
        if (!out.empty() && out.back() != '.') out += '.';
        out += (out.empty() ? "" : " ") + sentence + ".";
    };
    const std::vector<std::string> choices = value_choices(option);
    const bool is_told = option.get_type_name() == "METHOD";  // they have a section of their own
    if (!choices.empty() && !is_told) add((choices.size() == 1 ? "Only " : "One of ") + listed(choices));
    if (takes_several(option)) add("May be repeated");
    if (option.get_required()) add("Required");
    if (!option.get_default_str().empty()) add("Default: " + escape(option.get_default_str()));
    return out;
}

std::string options_text(const CLI::App& word) {
    std::string out;
    for (const bool positional : {true, false})
        for (const CLI::Option* option : word.get_options()) {
            const bool is_help = word.get_parent() != nullptr && option == word.get_help_ptr();
            if (option->get_positional() == positional && !option->get_group().empty() && !is_help)
                out += entry(term_of(*option), described(*option));
        }
    return out;
}

std::string synopsis(const CLI::App& word, const std::string& path) {
    std::string out = bold("brumectl " + path);
    std::string positionals;
    bool has_options = false;
    for (const CLI::Option* option : word.get_options()) {
        has_options |= !option->get_positional() && option != word.get_help_ptr();
        if (option->get_positional())
            positionals += option->get_required() ? " " + term_of(*option) : " [" + term_of(*option) + "]";
    }
    if (has_options) out += " [" + italic("OPTION") + "...]";
    out += positionals;
    if (!words_of(word).empty())
        out +=
            word.get_require_subcommand_min() > 0 ? " " + italic("COMMAND") : " [" + italic("COMMAND") + "]";
    return out + "\n\n";
}

std::string examples_text(const std::string& path) {
    std::string out;
    for (const Example& example : examples_of(path))
        out += entry(bold(std::string("brumectl ") + example.line), escape(example.what) + ".");
    return out.empty() ? out : (path.empty() ? "" : "Examples:\n\n") + out;
}

std::string word_text(const CLI::App& word, const std::string& path) {
    std::string out = "## " + path + "\n\n" + synopsis(word, path) + paragraph(word.get_description()) +
                      options_text(word) + paragraphs(word.get_footer()) + examples_text(path);
    for (const CLI::App* inner : words_of(word))
        out += word_text(*inner, path + " " + inner->get_name());
    return out;
}

std::string upper(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::toupper(c); });
    return text;
}

}  // namespace

std::string man_words(const CLI::App& program) {
    std::string out = "# OPTIONS\n\nThey may come before or after the command.\n\n" + options_text(program);
    std::vector<std::pair<std::string, std::string>> groups;
    for (const CLI::App* word : words_of(program)) {
        const std::string group = word->get_group() == "Subcommands" ? "Commands" : word->get_group();
        auto same = [&](const auto& known) { return known.first == group; };
        auto found = std::find_if(groups.begin(), groups.end(), same);
        if (found == groups.end()) found = groups.insert(groups.end(), {group, ""});
        found->second += word_text(*word, word->get_name());
    }
    for (const auto& [group, words] : groups)
        out += "# " + upper(group) + "\n\n" + words;
    return out;
}

}  // namespace brumectl
