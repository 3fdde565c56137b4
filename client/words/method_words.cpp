#include "client/words/method_words.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <map>

#include "client/context.h"
#include "client/text/fields.h"
#include "client/words/answer.h"
#include "client/words/typed_line.h"

namespace brumectl {

namespace {

/** Texts by the path of their field. */
using Given = std::map<std::string, std::vector<std::string>>;

/** How a method looks as a word: the positional parameters, in order. */
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

/** Words that are handwritten. */
constexpr const char* BY_HAND[] = {"log"};

bool is_by_hand(const std::string& method) {
    return std::find(std::begin(BY_HAND), std::end(BY_HAND), method) != std::end(BY_HAND);
}

/** Defaults of parameters here: the same as at the daemon's own start. */
constexpr struct {
    const char* method;
    const char* path;
    const char* text;
} DEFAULTS[] = {{"activate", "resources.max_flows", "16384"}};

/** Numbers that the daemon accepts but that make no sense. `call` sends them all the same. */
constexpr struct {
    const char* method;
    const char* path;
    uint64_t least;
    uint64_t most;
} LIMITS[] = {
    {"activate", "resources.max_flows", 1, UINT32_MAX},
    {"collect", "interval", 1, UINT32_MAX},
    {"collect", "socket.port", 1, UINT16_MAX},
    {"load", "shm.size", 1, UINT32_MAX},
};

/** Paths that may exist here: the daemon has its own working directory. */
constexpr struct {
    const char* method;
    const char* parameter;
} PATHS[] = {{"push_pcap", "filename"}, {"load", "path"}};

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

/** Whether the name is taken by an option of the program, which may also follow the word. */
bool is_taken(const CLI::App& app, const std::string& name) {
    return app.get_option_no_throw("--" + name) != nullptr;
}

/** "--resources.max_flows,--max_flows": with the short form if it is unambiguous. */
std::string option_names(const CLI::App& app, const std::vector<Field>& fields, const Field& field) {
    std::string names = is_taken(app, field.path) ? "" : "--" + field.path;
    std::string leaf = field.leaf();
    auto same = std::count_if(fields.begin(), fields.end(), [&](const Field& f) { return f.leaf() == leaf; });
    if (leaf != field.path && same == 1 && !is_taken(app, leaf)) names += ",--" + leaf;
    return names;
}

/** Includes the conditions under which the daemon requires it. */
std::string help_text(const Method& method, const Field& field) {
    const Parameter* parameter = method.find(field.path);
    std::string text = field.description;
    if (parameter == nullptr) return text;
    for (const std::string& name : parameter->required_when->getMemberNames()) {
        std::vector<std::string> values;
        for (const Json::Value& value : (*parameter->required_when)[name])
            values.push_back(value.asString());
        text += " Required with " + name + " " + alternatives(values) + ".";
    }
    return text;
}

/** Placeholder for a value in the help. */
std::string value_name(const Json::Value& schema) {
    constexpr std::pair<const char*, const char*> NAMES[] = {
        {"integer", "NUMBER"}, {"string", "TEXT"}, {"object", "JSON"}};
    if (schema["type"] == "array") return value_name(schema["items"]);
    if (schema.isMember("enum")) return CLI::detail::join(choices_of(schema), "|");
    for (const auto& [type, name] : NAMES)
        if (schema["type"] == type) return name;
    return "VALUE";
}

/** Empty if there is nothing to say in the help: parameters that aren't given are absent. */
std::string default_text(const Method& method, const Field& field) {
    for (const auto& known : DEFAULTS)
        if (method.name == known.method && field.path == known.path) return known.text;
    const Json::Value& value = (*field.schema)["default"];
    return value.isString() || value.isUInt64() ? value.asString() : "";
}

void add_field(CLI::App& app, CLI::App& word, const Method& method, const std::vector<Field>& fields,
               const Field& field, bool positional, const std::shared_ptr<Given>& given) {
    const std::string path = field.path;
    if ((*field.schema)["type"] == "boolean") {
        word.add_flag_function(
            option_names(app, fields, field),
            [given, path](int64_t count) { (*given)[path] = {count > 0 ? "true" : "false"}; },
            help_text(method, field));
        return;
    }
    std::string names = positional ? path : option_names(app, fields, field);
    CLI::Option* option = nullptr;
    if ((*field.schema)["type"] == "array") {
        auto take = [given, path](const std::vector<std::string>& texts) { (*given)[path] = texts; };
        option = word.add_option_function<std::vector<std::string>>(names, take, help_text(method, field));
    } else {
        // Not a list of one element: the parser splits a text that looks like a list.
        auto take = [given, path](const std::string& text) { (*given)[path] = {text}; };
        option = word.add_option_function<std::string>(names, take, help_text(method, field));
    }
    option->type_name(value_name(*field.schema))
        ->default_str(default_text(method, field))
        ->required(positional && field.required);
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

/** A path that exists here is meant as this one. Parameters that aren't given keep the daemon's default. */
void make_absolute(const std::string& method, Given& given) {
    std::error_code ignored;
    for (const auto& path : PATHS) {
        auto found = method == path.method ? given.find(path.parameter) : given.end();
        if (found == given.end()) continue;
        std::string& text = found->second.back();
        if (!text.empty() && std::filesystem::exists(text, ignored))
            text = std::filesystem::absolute(text, ignored).string();
    }
}

std::vector<Field> fields_of_word(const Method& method) {
    std::vector<Field> fields = fields_of(method);
    for (Field& field : fields)
        for (const auto& limit : LIMITS)
            if (method.name == limit.method && field.path == limit.path) {
                field.least = limit.least;
                field.most = limit.most;
            }
    return fields;
}

CLI::App* add_word(CLI::App& app, Context& context, const Method& method, const char* group) {
    CLI::App* word = app.add_subcommand(word_of(method.name), method.summary);
    if (!method.description.empty()) word->footer(method.description);
    word->group(group);
    auto given = std::make_shared<Given>();
    auto fields = std::make_shared<std::vector<Field>>(fields_of_word(method));
    for (const auto& known : DEFAULTS)
        if (method.name == known.method) (*given)[known.path] = {known.text};
    std::vector<const char*> positionals = positionals_of(method.name);
    for (const char* name : positionals)
        add_field(app, *word, method, *fields, *find_field(*fields, name), true, given);
    for (const Field& field : *fields) {
        bool named = std::find(positionals.begin(), positionals.end(), field.path) == positionals.end();
        if (named) add_field(app, *word, method, *fields, field, false, given);
    }
    word->callback([&context, &method, fields, given] {
        make_absolute(method.name, *given);
        Json::Value params = params_of(method, *fields, *given);
        ask_and_show(context, method.name, params.empty() ? Json::Value() : params);
    });
    return word;
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
        if (find_word(app, method.name) == nullptr)
            take_as_typed(*add_word(app, context, method, "Methods of the engine that is loaded"));
    return true;
}

}  // namespace brumectl
