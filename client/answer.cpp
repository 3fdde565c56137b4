#include "client/answer.h"

#include "client/context.h"
#include "client/failure.h"
#include "client/reply.h"
#include "client/views.h"
#include "infra/corvo_json.h"

namespace brumectl {

namespace {

void ask_and_print_result(Context& context, const std::string& method, const Json::Value& params) {
    const Json::Value result = context.daemon().call(method, params);
    const Terminal& out = context.out();
    out.print(out.interactive() ? harmless(corvo::json::write_styled(result), true)
                                : corvo::json::write_line(result));
    out.flush();
}

}  // namespace

void ask_and_print_text(Context& context, const std::string& method, const Json::Value& params) {
    if (context.options().result) return ask_and_print_result(context, method, params);
    std::string text = context.daemon().call_text(method, params);
    if (text.empty() || text.back() != '\n') text += '\n';
    // JSON that escapes its control characters is the same either way; a peer may send others.
    context.out().print(context.out().interactive() ? harmless(text, true) : text);
    context.out().flush();
    reply::throw_error(reply::parse(text));
}

void ask_and_show(Context& context, const std::string& method, const Json::Value& params) {
    if (context.json())
        ask_and_print_text(context, method, params);
    else
        context.out().print(view(context.out(), method, context.daemon().call(method, params)));
}

}  // namespace brumectl
