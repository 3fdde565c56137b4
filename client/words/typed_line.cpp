#include "client/words/typed_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>

namespace brumectl {

namespace {

/** Starts a word that the parser would otherwise interpret. Nothing that people type starts like this. */
constexpr char GUARD = '\x01';

/** Words for which "help" is an argument: a text, a function of the engine. */
constexpr const char* TAKES_HELP[] = {"echo", "coffee"};

bool is_in_brackets(const std::string& word) {
    return word.size() > 1 && word.front() == '[' && word.back() == ']';
}

std::string guarded(const std::string& word) {
    return GUARD + word;
}

bool takes_value(const CLI::Option& option) {
    return option.get_items_expected_max() > 0;
}

bool asks_for_help(const CLI::App& word, const std::string& text) {
    const auto* const end = std::end(TAKES_HELP);
    return word.get_parent() != nullptr && (text == "help" || text == "?") &&
           std::find(std::begin(TAKES_HELP), end, word.get_name()) == end;
}

/** One pass over the line, which knows just enough about the words to tell options from their values. */
class Pass {
 public:
    explicit Pass(const CLI::App& program) : m_word(&program) {}

    void take(const std::string& text, bool is_last) {
        if (m_value_follows) {
            m_words.push_back(is_in_brackets(text) || text.empty() || text[0] == GUARD ? guarded(text)
                                                                                       : text);
            m_value_follows = false;
        } else if (!m_options_ended && text == "--") {
            m_options_ended = true;
        } else if (!m_options_ended && text.size() > 1 && text.front() == '-') {
            take_option(text);
        } else {
            take_operand(text, is_last);
        }
    }

    std::vector<std::string>& words() { return m_words; }

 private:
    void take_option(const std::string& text) {
        const size_t equals = text.compare(0, 2, "--") == 0 ? text.find('=') : std::string::npos;
        const std::string name = text.substr(0, equals);
        const CLI::Option* option = find_option(*m_word, name);
        if (option == nullptr || equals == std::string::npos) {
            m_value_follows = option != nullptr && takes_value(*option);
            m_words.push_back(text);
            return;
        }
        const std::string value = text.substr(equals + 1);
        if (takes_value(*option)) {
            m_words.push_back(name);
            m_value_follows = true;
            take(value, false);
        } else {
            m_words.push_back(value.empty() ? text + GUARD : text);
        }
    }

    void take_operand(const std::string& text, bool is_last) {
        if (const CLI::App* inner = m_operands == 0 ? find_word(*m_word, text) : nullptr) {
            m_word = inner;
            m_words.push_back(text);
            return;
        }
        const bool ends_here = is_last || !m_word->get_subcommands({}).empty();
        if (ends_here && m_operands == 0 && !m_options_ended && asks_for_help(*m_word, text)) {
            m_words.emplace_back("--help");
            return;
        }
        ++m_operands;
        const bool is_option_like = m_options_ended && text.size() > 1 && text.front() == '-';
        const bool means_something =
            is_option_like || is_in_brackets(text) || text == "++" || text[0] == GUARD;
        m_words.push_back(means_something ? guarded(text) : text);
    }

    const CLI::App* m_word;
    std::vector<std::string> m_words;
    size_t m_operands = 0;
    bool m_value_follows = false;
    bool m_options_ended = false;
};

}  // namespace

std::vector<std::string> for_parser(const CLI::App& program, const std::vector<std::string>& typed) {
    Pass pass(program);
    for (size_t i = 0; i < typed.size(); ++i)
        pass.take(typed[i], i + 1 == typed.size());
    return pass.words();
}

void take_as_typed(CLI::App& app) {
    const auto strip = [](std::string& text) {
        text = as_typed(text);
        return std::string();
    };
    const auto judge_flag = [](const std::string& text) {
        return std::string(text == "true" || text == "false" ? "" : "takes no value but true or false");
    };
    for (CLI::Option* option : app.get_options())
        option->transform(takes_value(*option) ? CLI::Validator(strip, "") : CLI::Validator(judge_flag, ""));
    for (CLI::App* word : app.get_subcommands({}))
        take_as_typed(*word);
}

std::string as_typed(const std::string& word) {
    return !word.empty() && word.front() == GUARD ? word.substr(1) : word;
}

const CLI::Option* find_option(const CLI::App& word, const std::string& name) {
    for (const CLI::App* at = &word; at != nullptr; at = at->get_parent())
        if (const CLI::Option* option = at->get_option_no_throw(name)) return option;
    return nullptr;
}

const CLI::App* find_word(const CLI::App& app, const std::string& name) {
    for (const CLI::App* word : app.get_subcommands({}))
        if (word->get_name() == name) return word;
    return nullptr;
}

}  // namespace brumectl
