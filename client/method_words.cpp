#include "client/method_words.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <map>

#include "client/answer.h"
#include "client/context.h"
#include "client/fields.h"

namespace brumectl {

namespace {

/** Texts by the path of their field. */
using Given = std::map<std::string, std::vector<std::string>>;

/** How a method looks as a word: parameters that stand without a name, in their order. */
struct Shape {
    const char* method;
    std::vector<const char*> positionals;
};

const Shape SHAPES[] = {
    {"echo", {"message"}},        {"push_pcap", {"filename"}},
    {"coffee", {"func", "args"}}, {"attach", {"intf"}},
    {"detach", {"intf"}},         {"collect", {"cmd", "component"}},
    {"health", {"cmd", "json"}},  {"notifications", {"cmd", "op", "socket"}},
};

/** Methods whose own name means something else on the command line. */
constexpr struct {
    const char* method;
    const char* word;
} RENAMED[] = {{"events", "hogs"}};

/** Words that are written by hand. */
constexpr const char* BY_HAND[] = {"log"};

bool is_by_hand(const std::string& method) {
    return std::find(std::begin(BY_HAND), std::end(BY_HAND), method) != std::end(BY_HAND);
}

std::string word_of(const std::string& method) {
    for (const auto& renamed : RENAMED)
        if (method == renamed.method) return renamed.word;
    return method;
}

std::vector<const char*> positionals_of(const std::string& method) {
    for (const Shape& shape : SHAPES)
        if (method == shape.method) return shape.positionals;
    return {};
}

/** The name is taken by an option of the program, which may stand behind the word, too. */
bool is_taken(const CLI::App& app, const std::string& name) {
    return app.get_option_no_throw("--" + name) != nullptr;
}

/** "--resources.max_flows,--max_flows": the short form where it means one thing only. */
std::string option_names(const CLI::App& app, const std::vector<Field>& fields, const Field& field) {
    std::string names = is_taken(app, field.path) ? "" : "--" + field.path;
    std::string leaf = field.leaf();
    auto same = std::count_if(fields.begin(), fields.end(), [&](const Field& f) { return f.leaf() == leaf; });
    if (leaf != field.path && same == 1 && !is_taken(app, leaf)) names += ",--" + leaf;
    return names;
}

std::string help_text(const Field& field) {
    return field.description.empty() && field.leaf() != field.path ? field.path : field.description;
}

void add_field(CLI::App& app, CLI::App& word, const std::vector<Field>& fields, const Field& field,
               bool positional, const std::shared_ptr<Given>& given) {
    const std::string path = field.path;
    if ((*field.schema)["type"] == "boolean") {
        word.add_flag_function(
            option_names(app, fields, field),
            [given, path](int64_t count) { (*given)[path] = {count > 0 ? "true" : "false"}; },
            help_text(field));
        return;
    }
    std::string names = positional ? path : option_names(app, fields, field);
    CLI::Option* option = nullptr;
    if ((*field.schema)["type"] == "array") {
        auto take = [given, path](const std::vector<std::string>& texts) { (*given)[path] = texts; };
        option = word.add_option_function<std::vector<std::string>>(names, take, help_text(field));
    } else {
        // Not a list of one: lists are taken apart where a text looks like one.
        auto take = [given, path](const std::string& text) { (*given)[path] = {text}; };
        option = word.add_option_function<std::string>(names, take, help_text(field));
    }
    option->type_name(type_text(*field.schema))->required(positional && field.required);
}

Json::Value params_of(const Method& method, const std::vector<Field>& fields, const Given& given) {
    Json::Value params;
    for (const Field& field : fields) {
        auto found = given.find(field.path);
        if (found == given.end()) continue;
        Json::Value value;
        if ((*field.schema)["type"] == "array") {
            Field item = field;
            item.schema = &(*field.schema)["items"];
            value = Json::arrayValue;
            for (const std::string& text : found->second)
                value.append(value_of(item, text));
        } else {
            value = value_of(field, found->second.back());
        }
        put(params, field.path, value);
    }
    complete(method, params);
    return params;
}

/** The daemon has a working directory of its own: a capture that is here is meant to be this one. */
void make_absolute(Json::Value& params) {
    std::error_code ignored;
    const std::string file = params["filename"].isString() ? params["filename"].asString() : "";
    if (!file.empty() && std::filesystem::exists(file, ignored))
        params["filename"] = std::filesystem::absolute(file, ignored).string();
}

void add_word(CLI::App& app, Context& context, const Method& method, const char* group) {
    CLI::App* word = app.add_subcommand(word_of(method.name), method.summary);
    if (!method.description.empty()) word->footer(method.description);
    word->group(group);
    auto given = std::make_shared<Given>();
    auto fields = std::make_shared<std::vector<Field>>(fields_of(method));
    std::vector<const char*> positionals = positionals_of(method.name);
    for (const char* name : positionals)
        add_field(app, *word, *fields, *find_field(*fields, name), true, given);
    for (const Field& field : *fields) {
        bool named = std::find(positionals.begin(), positionals.end(), field.path) == positionals.end();
        if (named) add_field(app, *word, *fields, field, false, given);
    }
    word->callback([&context, &method, fields, given] {
        Json::Value params = params_of(method, *fields, *given);
        if (method.name == "push_pcap") make_absolute(params);
        ask_and_show(context, method.name, params.empty() ? Json::Value() : params);
    });
}

}  // namespace

void add_method_words(CLI::App& app, Context& context) {
    for (const Method& method : MethodTable::get().methods())
        if (!is_by_hand(method.name)) add_word(app, context, method, "Methods of the daemon");
}

bool add_engine_words(CLI::App& app, Context& context, bool quietly) {
    const MethodTable* table = context.engine_methods(quietly);
    if (table == nullptr) return false;
    for (const Method& method : table->methods())
        if (app.get_subcommands([&](const CLI::App* word) { return word->get_name() == method.name; })
                .empty())
            add_word(app, context, method, "Methods of the engine that is loaded");
    return true;
}

}  // namespace brumectl
