#include "client/words/call.h"

#include <CLI/CLI.hpp>

#include "client/context.h"
#include "client/failure.h"
#include "client/text/complaints.h"
#include "client/text/fields.h"
#include "client/text/json_access.h"
#include "client/text/text_file.h"
#include "client/words/answer.h"

namespace brumectl {

namespace {

/** More than any transport of the daemon accepts. */
constexpr size_t MAX_INPUT_BYTES = 64UL * 1024 * 1024;

Json::Value object_of(const std::string& text) {
    Json::Value params;
    std::string error;
    if (!parse_whole(text, params, &error)) throw Usage("the parameters are no JSON: " + error);
    if (!params.isObject()) throw Usage("the parameters must be a JSON object");
    return params;
}

void add_pair(const Method* method, const std::string& pair, Json::Value& params) {
    size_t equals = pair.find('=');
    if (equals == std::string::npos || equals == 0)
        throw Usage("'" + pair + "' is neither NAME=VALUE nor a JSON object nor -");
    std::string path = pair.substr(0, equals);
    const Json::Value* schema = nullptr;
    if (method != nullptr) {
        const std::vector<Field> fields = fields_of(*method);
        const Field* field = find_field(fields, path);
        const Parameter* whole = method->find(path.substr(0, path.find('.')));
        std::vector<std::string> known;
        known.reserve(fields.size());
        for (const Field& f : fields)
            known.push_back(f.path);
        // Members of a parameter without further description are the engine's business.
        bool open = whole != nullptr && (path == whole->name || find_field(fields, whole->name) != nullptr);
        if (field == nullptr && !open)
            throw Usage("'" + method->name + "' has no parameter '" + path + "'" + did_you_mean(path, known));
        schema = field != nullptr ? field->schema : path == whole->name ? whole->schema : nullptr;
    }
    put(params, path, guess_value(schema, pair.substr(equals + 1)));
}

Json::Value params_of(const std::string& method, const std::vector<std::string>& words) {
    if (words.empty()) return Json::Value();
    if (words.size() == 1 && words[0] == "-") return object_of(read_text("-", MAX_INPUT_BYTES));
    if (words.size() == 1 && words[0].find_first_of("{[\"") == 0) return object_of(words[0]);
    Json::Value params;
    for (const std::string& pair : words)
        add_pair(MethodTable::get().find(method), pair, params);
    return params;
}

void call(Context& context, const std::string& method, const std::vector<std::string>& words) {
    Json::Value params = params_of(method, words);
    try {
        ask_and_show(context, method, params);
    } catch (const ErrorReply& e) {
        if (e.code() != ErrorReply::METHOD_NOT_FOUND) throw;
        throw ErrorReply(e.code(), e.what() + did_you_mean(method, MethodTable::get().names()));
    }
}

}  // namespace

void add_call(CLI::App& app, Context& context) {
    auto method = std::make_shared<std::string>();
    auto words = std::make_shared<std::vector<std::string>>();
    CLI::App* word = app.add_subcommand("call", "Call any method, including the engine's own");
    word->footer(
        "A value that is JSON of the parameter's type is taken as JSON, any other as a string.\n"
        "Dotted names set members of objects: brumectl call activate resources.max_flows=16384");
    word->add_option("method", *method, "The method's name")->required()->type_name("METHOD");
    word->add_option("params", *words, "Parameters: NAME=VALUE …, a JSON object, or - to read one from stdin")
        ->type_name("PARAM");
    word->callback([&context, method, words] { call(context, *method, *words); });
}

}  // namespace brumectl
