#include "client/words/completion.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <map>

#include "client/text/method_table.h"
#include "client/words/typed_line.h"

namespace brumectl {

namespace {

using Candidates = std::vector<Candidate>;

/** Types whose values may name a file. */
constexpr const char* FILE_TYPES[] = {"ADDRESS", "DIR", "FILE", "PATH", "TEXT"};

bool takes_value(const CLI::Option& option) {
    return option.get_items_expected_max() > 0;
}

/** The positional at an index; the last one repeats if it takes any number of values. Null after the last. */
const CLI::Option* positional(const CLI::App& word, size_t index) {
    const CLI::Option* last = nullptr;
    for (const CLI::Option* option : word.get_options()) {
        if (!option->get_positional()) continue;
        last = option;
        if (index-- == 0) return option;
    }
    return last != nullptr && last->get_items_expected_max() > 1 ? last : nullptr;
}

/** Splits "--level=warn" into "--level" and "warn"; false if the text doesn't have this form. */
bool split_option(const std::string& text, std::string& name, std::string& value) {
    size_t sign = text.find('=');
    if (text.rfind("--", 0) != 0 || sign == std::string::npos) return false;
    name = text.substr(0, sign);
    value = text.substr(sign + 1);
    return true;
}

/** Follows a line from its start. */
class Walk {
 public:
    explicit Walk(const CLI::App& program) : m_program(program), m_word(&program) {}

    void take(const std::string& text) {
        std::string name;
        std::string value;
        if (m_waiting != nullptr) {
            m_given[m_waiting->get_name()] = text;
            m_waiting = nullptr;
        } else if (m_no_more_options || text.rfind('-', 0) != 0) {
            take_word(text);
        } else if (text == "--") {
            m_no_more_options = true;
        } else if (split_option(text, name, value)) {
            if (const CLI::Option* option = find(name)) m_given[option->get_name()] = value;
        } else if (const CLI::Option* option = find(text); option != nullptr && takes_value(*option)) {
            m_waiting = option;
        }
    }

    const CLI::Option* find(const std::string& name) const { return find_option(*m_word, name); }
    const CLI::App& word() const { return *m_word; }
    bool at_option(const std::string& prefix) const {
        return m_waiting == nullptr && !m_no_more_options && prefix.rfind('-', 0) == 0;
    }
    /** The option or positional whose value comes next; null if none does. */
    const CLI::Option* value() const {
        if (m_waiting != nullptr || m_of_help) return m_waiting;
        return positional(*m_word, m_positionals);
    }
    /** The first unknown word; empty if there is none. */
    const std::string& unknown() const { return m_unknown; }
    bool word_may_follow() const { return m_waiting == nullptr && m_positionals == 0; }

    /** "evidence show". */
    std::string path() const {
        std::string path;
        for (const CLI::App* at = m_word; at != &m_program; at = at->get_parent())
            path = at->get_name() + (path.empty() ? "" : " ") + path;
        return path;
    }

    Surroundings surroundings(const Options& defaults) const {
        Surroundings around{defaults, given("--dir")};
        if (std::string address = given("--socket"); !address.empty()) around.options.address = address;
        return around;
    }

 private:
    void take_word(const std::string& text) {
        const CLI::App* inner = m_positionals == 0 ? find_word(*m_word, text) : nullptr;
        if (inner == nullptr) {
            if (++m_positionals == 1 && m_word == &m_program) m_unknown = text;
        } else if (!m_of_help && inner->get_name() == "help") {
            m_of_help = true;
        } else {
            m_word = inner;
        }
    }

    std::string given(const char* option) const {
        auto found = m_given.find(option);
        return found == m_given.end() ? std::string() : found->second;
    }

    const CLI::App& m_program;
    const CLI::App* m_word;
    const CLI::Option* m_waiting = nullptr;
    bool m_no_more_options = false;
    bool m_of_help = false;  ///< the words that follow are those to show help for
    size_t m_positionals = 0;
    std::string m_unknown = {};
    std::map<std::string, std::string> m_given;
};

Candidates options_of(const CLI::App& program, const CLI::App& word) {
    Candidates found;
    for (const CLI::App* app : {&word, &program})
        for (const CLI::Option* option : app->get_options())
            for (const std::string& name : dashed_names(*option))
                found.push_back({name, option->get_description()});
    return found;
}

Candidates inner_words(const CLI::App& word) {
    Candidates found;
    for (const CLI::App* inner : words_of(word))
        found.push_back({inner->get_name(), inner->get_description()});
    return found;
}

void append(Candidates& found, const Candidates& more) {
    found.insert(found.end(), more.begin(), more.end());
}

std::string summary_of(const std::string& method) {
    const Method* found = MethodTable::get().find(method);
    return found == nullptr ? std::string() : found->summary;
}

bool may_be_file(const CLI::Option& option) {
    return std::find(std::begin(FILE_TYPES), std::end(FILE_TYPES), option.get_type_name()) !=
           std::end(FILE_TYPES);
}

void add_values(const Walk& walk, const CLI::Option& option, const Options& defaults, Completion& out) {
    const bool methods = option.get_type_name() == "METHOD";
    for (const std::string& choice : value_choices(option))
        out.candidates.push_back({choice, methods ? summary_of(choice) : ""});
    if (!out.candidates.empty()) return;
    if (auto names = known_names(walk.path(), option.get_name(), walk.surroundings(defaults)))
        append(out.candidates, *names);
    else
        out.files = may_be_file(option);
}

/**
 * Keeps what starts with `prefix`, sorted and without duplicates, with the first line of each description.
 */
void tidy(const std::string& prefix, Candidates& found) {
    std::erase_if(found, [&](const Candidate& one) { return one.text.rfind(prefix, 0) != 0; });
    std::stable_sort(found.begin(), found.end(),
                     [](const Candidate& a, const Candidate& b) { return a.text < b.text; });
    auto same = [](const Candidate& a, const Candidate& b) { return a.text == b.text; };
    found.erase(std::unique(found.begin(), found.end(), same), found.end());
    for (Candidate& one : found)
        one.description = one.description.substr(0, one.description.find('\n'));
}

/** The choices in "TEXT:{a,b}". */
std::string choices_in_braces(const std::string& type) {
    size_t begin = type.find('{');
    size_t end = type.rfind('}');
    if (begin == std::string::npos || end == std::string::npos || end < begin) return {};
    return type.substr(begin + 1, end - begin - 1);
}

}  // namespace

std::vector<const CLI::App*> words_of(const CLI::App& app) {
    return app.get_subcommands([](const CLI::App* word) { return !word->get_group().empty(); });
}

std::vector<std::string> word_names(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::App* word : words_of(app))
        names.push_back(word->get_name());
    return names;
}

std::vector<std::string> dashed_names(const CLI::Option& option) {
    std::vector<std::string> names;
    for (const std::string& name : option.get_snames())
        names.push_back("-" + name);
    for (const std::string& name : option.get_lnames())
        names.push_back("--" + name);
    return names;
}

std::vector<std::string> option_names(const CLI::App& program, const CLI::App& word) {
    std::vector<std::string> names;
    for (const Candidate& option : options_of(program, word))
        names.push_back(option.text);
    return names;
}

std::vector<std::string> value_choices(const CLI::Option& option) {
    const std::string type = option.get_type_name();
    if (type == "METHOD") return MethodTable::get().names();
    if (std::string choices = choices_in_braces(type); !choices.empty())
        return CLI::detail::split(choices, ',');
    if (type.find('|') == std::string::npos) return {};
    return CLI::detail::split(type, '|');
}

bool completes_engine_words(const CLI::App& program, const std::vector<std::string>& before) {
    Walk walk(program);
    for (const std::string& text : before)
        walk.take(text);
    return &walk.word() == &program &&
           (walk.word_may_follow() || walk.unknown().find('.') != std::string::npos);
}

Completion complete(const CLI::App& program, const Options& defaults, const std::vector<std::string>& before,
                    const std::string& prefix) {
    Walk walk(program);
    for (const std::string& text : before)
        walk.take(text);
    Completion out;
    std::string name;
    std::string value;
    if (walk.at_option(prefix) && split_option(prefix, name, value)) {
        if (const CLI::Option* option = walk.find(name); option != nullptr && takes_value(*option))
            add_values(walk, *option, defaults, out);
        for (Candidate& one : out.candidates)
            one.text.insert(0, name + "=");
    } else if (walk.at_option(prefix)) {
        out.candidates = options_of(program, walk.word());
    } else {
        if (const CLI::Option* option = walk.value()) add_values(walk, *option, defaults, out);
        if (walk.word_may_follow()) append(out.candidates, inner_words(walk.word()));
    }
    tidy(prefix, out.candidates);
    return out;
}

}  // namespace brumectl
