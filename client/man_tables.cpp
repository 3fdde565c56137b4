#include "client/man_tables.h"

#include <CLI/CLI.hpp>

#include "client/completion.h"
#include "client/fields.h"
#include "client/method_table.h"
#include "infra/corvo_json.h"

namespace brumectl {

namespace {

/** As it stands, whatever it means to scdoc. A name between backticks becomes bold. */
std::string escape(const std::string& text) {
    std::string out;
    for (char c : text) {
        if (c == '`') {
            out += '*';
            continue;
        }
        if (c == '\n') {
            out += "++\n";
            continue;
        }
        if (std::string("\\*_#.~[]|<>+-").find(c) != std::string::npos) out += '\\';
        out += c;
    }
    return out;
}

std::string entry(const std::string& term, const std::string& text) {
    return term + "\n\t" + escape(text) + "\n\n";
}

std::string paragraph(const std::string& text) {
    return text.empty() ? "" : escape(text) + "\n\n";
}

std::string result_text(const Json::Value& result) {
    std::string out;
    const Json::Value& schema = result["schema"];
    for (const std::string& name : schema["properties"].getMemberNames()) {
        const Json::Value& member = schema["properties"][name];
        std::string text = type_text(member);
        if (member["description"].isString()) text += ": " + member["description"].asString();
        out += entry("*" + escape(name) + "*", text);
    }
    return out;
}

std::string needed_text(const Field& field) {
    const Json::Value& schema = *field.schema;
    if (field.required) return ", required";
    return schema.isMember("default") ? ", default " + corvo::json::write(schema["default"]) : "";
}

std::string option_term(const CLI::Option& option) {
    std::string term;
    std::string value =
        option.get_items_expected_max() > 0 ? " _" + escape(option.get_type_name()) + "_" : "";
    for (const std::string& name : option.get_snames())
        term += (term.empty() ? "*-" : ", *-") + escape(name) + "*";
    for (const std::string& name : option.get_lnames())
        term += (term.empty() ? "*--" : ", *--") + escape(name) + "*";
    return term.empty() ? "_" + escape(option.get_name(true)) + "_" : term + value;
}

std::string described(const CLI::Option& option) {
    const std::string& text = option.get_description();
    return text.empty() ? "one of " + option.get_type_name() : text;
}

std::string options_text(const CLI::App& word) {
    std::string out;
    for (const CLI::Option* option : word.get_options())
        if (!option->get_group().empty() && !option->check_name("--help"))
            out += entry(option_term(*option), described(*option));
    return out;
}

std::string words_text(const CLI::App& app, const std::string& path) {
    std::string out;
    for (const CLI::App* word : words_of(app)) {
        const std::string name = word->get_name();
        out += "## " + path + name + "\n\n" + paragraph(word->get_description()) +
               paragraph(word->get_footer()) + options_text(*word) + words_text(*word, path + name + " ");
    }
    return out;
}

}  // namespace

std::string man_methods() {
    std::string out;
    for (const Method& method : MethodTable::get().methods()) {
        out += "## " + method.name + "\n\n" + paragraph(method.summary) + paragraph(method.description);
        for (const Field& field : fields_of(method))
            out += entry("*" + escape(field.path) + "*",
                         type_text(*field.schema) + needed_text(field) +
                             (field.description.empty() ? "" : ": " + field.description));
        std::string result = result_text((*method.document)["result"]);
        if (!result.empty()) out += "Members of the result:\n\n" + result;
    }
    return out;
}

std::string man_words(const CLI::App& program) {
    return options_text(program) + words_text(program, "");
}

}  // namespace brumectl
