#include "client/words/answer.h"

#include <chrono>
#include <cstdio>

#include "client/context.h"
#include "client/words/push_remarks.h"
#include "client/words/views.h"

namespace brumectl {

namespace {

/** Shows the round-trip time, which is what people want to know and isn't in the reply. */
void ping(Context& context, const Json::Value& params) {
    const std::string where = context.daemon().address().text;  // connected from here on
    const auto begin = std::chrono::steady_clock::now();
    context.daemon().call("ping", params);
    const std::chrono::duration<double, std::milli> taken = std::chrono::steady_clock::now() - begin;
    char text[48];
    snprintf(text, sizeof(text), "%.2f ms", taken.count());
    context.out().print("answer from " + harmless(where) + " in " + text + "\n");
}

void show(Context& context, const std::string& method, const Json::Value& params) {
    if (context.json()) return context.ask_and_print_reply(method, params);
    if (method == "ping") return ping(context, params);
    context.out().print(view(context.out(), method, context.daemon().call(method, params)));
}

}  // namespace

void ask_and_show(Context& context, const std::string& method, const Json::Value& params) {
    if (method != "push_pcap") return show(context, method, params);
    const PushRemarks remarks(context.daemon(), params);
    show(context, method, params);
    context.out().flush();
    remarks.tell(context.err());
}

}  // namespace brumectl
