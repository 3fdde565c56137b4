#include "client/answer.h"

#include "client/context.h"
#include "client/failure.h"
#include "client/reply.h"
#include "client/views.h"

namespace brumectl {

void ask_and_print_text(Context& context, const std::string& method, const Json::Value& params) {
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
