#include "client/call.h"

#include <CLI/CLI.hpp>

#include "client/context.h"
#include "client/failure.h"
#include "infra/corvo_json.h"

namespace brumectl {

namespace {

void call(Context& context, const std::string& method, const std::string& params_text) {
    Json::Value params;
    if (!params_text.empty() && !corvo::json::parse(params_text, params)) throw Usage("params are no JSON");
    if (context.json()) {
        context.out().print(context.daemon().call_text(method, params));
        return;
    }
    context.out().print(corvo::json::write_styled(context.daemon().call(method, params)));
}

}  // namespace

void add_call(CLI::App& app, Context& context) {
    auto method = std::make_shared<std::string>();
    auto params = std::make_shared<std::string>();
    CLI::App* word = app.add_subcommand("call", "Call any method");
    word->add_option("method", *method, "Its name")->required();
    word->add_option("params", *params, "Its parameters, a JSON object");
    word->callback([&context, method, params] { call(context, *method, *params); });
}

}  // namespace brumectl
