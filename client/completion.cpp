#include "client/completion.h"

#include <CLI/CLI.hpp>
#include <algorithm>

#include "client/method_table.h"

namespace brumectl {

namespace {

std::vector<std::string> dashed_names(const CLI::Option& option) {
    std::vector<std::string> names;
    for (const std::string& name : option.get_snames())
        names.push_back("-" + name);
    for (const std::string& name : option.get_lnames())
        names.push_back("--" + name);
    return names;
}

const CLI::Option* find_option(const CLI::App& program, const CLI::App& word, const std::string& name) {
    const CLI::Option* option = word.get_option_no_throw(name);
    return option != nullptr ? option : program.get_option_no_throw(name);
}

const CLI::App* find_word(const CLI::App& app, const std::string& name) {
    for (const CLI::App* word : words_of(app))
        if (word->get_name() == name) return word;
    return nullptr;
}

bool takes_value(const CLI::Option& option) {
    return option.get_items_expected_max() > 0;
}

/** Null behind the last one; the last one stays where it takes any number. */
const CLI::Option* positional(const CLI::App& word, size_t index) {
    const CLI::Option* last = nullptr;
    for (const CLI::Option* option : word.get_options()) {
        if (!option->get_positional()) continue;
        last = option;
        if (index-- == 0) return option;
    }
    return last != nullptr && last->get_items_expected_max() > 1 ? last : nullptr;
}

/** Where a line stands. */
struct Place {
    const CLI::App* word;
    const CLI::Option* waiting = nullptr;  ///< an option whose value comes next
    size_t positionals = 0;
};

Place walk(const CLI::App& program, const std::vector<std::string>& before) {
    Place place{&program};
    for (const std::string& text : before) {
        if (place.waiting != nullptr) {
            place.waiting = nullptr;
        } else if (text.rfind('-', 0) == 0) {
            const CLI::Option* option = find_option(program, *place.word, text);
            if (option != nullptr && takes_value(*option)) place.waiting = option;
        } else if (const CLI::App* inner = find_word(*place.word, text)) {
            place.word = inner;
        } else {
            ++place.positionals;
        }
    }
    return place;
}

std::vector<std::string> possible(const CLI::App& program, const Place& place, bool option_begun) {
    if (place.waiting != nullptr) return value_choices(*place.waiting);
    if (option_begun) return option_names(program, *place.word);
    std::vector<std::string> found = word_names(*place.word);
    if (const CLI::Option* option = positional(*place.word, place.positionals)) {
        std::vector<std::string> choices = value_choices(*option);
        found.insert(found.end(), choices.begin(), choices.end());
    }
    return found;
}

std::string join(const std::vector<std::string>& words) {
    std::string out;
    for (const std::string& word : words)
        out += (out.empty() ? "" : " ") + word;
    return out;
}

/** The tables of a script: one case branch a line. */
struct Branches {
    std::string words;    ///< paths of words that exist
    std::string values;   ///< path and option: its choices
    std::string options;  ///< path: its options
    std::string next;     ///< path and number of positionals: words and choices
};

std::string branch(const std::string& pattern, const std::string& list) {
    return "        '" + pattern + "') list='" + list + "' ;;\n";
}

void add_branches(const CLI::App& program, const CLI::App& word, const std::string& path, Branches& out) {
    out.options += branch(path, join(option_names(program, word)));
    for (const CLI::Option* option : word.get_options()) {
        std::vector<std::string> choices = value_choices(*option);
        if (!takes_value(*option) || choices.empty()) continue;
        for (const std::string& name : dashed_names(*option))
            out.values += branch(path + " " + name, join(choices));
    }
    for (size_t index = 0; index == 0 || positional(word, index) != positional(word, index - 1); ++index) {
        std::string list = join(possible(program, {&word, nullptr, index}, false));
        if (!list.empty()) out.next += branch(path + " " + std::to_string(index), list);
    }
    for (const CLI::App* inner : words_of(word)) {
        std::string inner_path = path + " " + inner->get_name();
        out.words += (out.words.empty() ? "'" : "|'") + inner_path + "'";
        add_branches(program, *inner, inner_path, out);
    }
}

/** Names of options that swallow the word behind them, wherever they stand. */
std::string value_options(const CLI::App& app) {
    std::string out;
    for (const CLI::Option* option : app.get_options())
        if (takes_value(*option))
            for (const std::string& name : dashed_names(*option))
                out += "|" + name;
    for (const CLI::App* word : words_of(app))
        out += value_options(*word);
    return out;
}

/** What the two shells say differently. */
struct Dialect {
    const char* shell;
    const char* head;
    const char* locals;
    const char* tail;
};

constexpr Dialect DIALECTS[] = {
    {"bash", "# bash completion for brumectl; made by `brumectl completion bash`\n_brumectl() {\n",
     "    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD-1]}\n"
     "    local -a typed=(\"${COMP_WORDS[@]:1:COMP_CWORD-1}\")\n",
     "    COMPREPLY=($(compgen -W \"$list\" -- \"$cur\"))\n}\n"
     "complete -o default -F _brumectl brumectl\n"},
    {"zsh", "#compdef brumectl\n# made by `brumectl completion zsh`\n_brumectl() {\n",
     "    local cur=${words[CURRENT]} prev=${words[CURRENT-1]}\n"
     "    local -a typed=(\"${(@)words[2,CURRENT-1]}\")\n",
     "    if [[ -n $list ]]; then\n        compadd -- ${=list}\n    else\n        _files\n    fi\n}\n"
     "_brumectl \"$@\"\n"},
};

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

std::vector<std::string> option_names(const CLI::App& program, const CLI::App& word) {
    std::vector<std::string> names;
    for (const CLI::App* app : {&word, &program})
        for (const CLI::Option* option : app->get_options())
            for (const std::string& name : dashed_names(*option))
                if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
    return names;
}

std::vector<std::string> value_choices(const CLI::Option& option) {
    std::string type = option.get_type_name();
    if (type == "METHOD") return MethodTable::get().names();
    if (type.find('|') == std::string::npos) return {};
    return CLI::detail::split(type, '|');
}

std::vector<std::string> candidates(const CLI::App& program, const std::vector<std::string>& before,
                                    const std::string& prefix) {
    std::vector<std::string> found = possible(program, walk(program, before), prefix.rfind('-', 0) == 0);
    std::erase_if(found, [&](const std::string& text) { return text.rfind(prefix, 0) != 0; });
    std::sort(found.begin(), found.end());
    found.erase(std::unique(found.begin(), found.end()), found.end());
    return found;
}

std::string completion_script(const CLI::App& program, const std::string& shell) {
    const Dialect& dialect = shell == "zsh" ? DIALECTS[1] : DIALECTS[0];
    Branches branches;
    add_branches(program, program, "", branches);
    std::string out = dialect.head;
    out += dialect.locals;
    out +=
        "    local at='' list='' text skip=0 count=0\n"
        "    for text in \"${typed[@]}\"; do\n"
        "        if ((skip)); then skip=0; continue; fi\n"
        "        case \"$text\" in\n"
        "        " +
        value_options(program).substr(1) +
        ") skip=1; continue ;;\n"
        "        -*) continue ;;\n"
        "        esac\n"
        "        case \"$at $text\" in\n"
        "        " +
        branches.words +
        ") at=\"$at $text\" count=0 ;;\n"
        "        *) count=$((count + 1)) ;;\n"
        "        esac\n"
        "    done\n"
        "    if ((skip)); then\n"
        "        case \"$at $prev\" in\n" +
        branches.values +
        "        esac\n"
        "    elif [[ $cur == -* ]]; then\n"
        "        case \"$at\" in\n" +
        branches.options +
        "        esac\n"
        "    else\n"
        "        case \"$at $count\" in\n" +
        branches.next +
        "        esac\n"
        "    fi\n";
    return out + dialect.tail;
}

}  // namespace brumectl
