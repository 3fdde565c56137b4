#include "client/answer.h"

#include <chrono>
#include <cstdio>

#include "client/context.h"
#include "client/failure.h"
#include "client/push_remarks.h"
#include "client/reply.h"
#include "client/views.h"
#include "infra/json/corvo_json.h"

namespace brumectl {

namespace {

void print_result(Context& context, const std::string& method, const Json::Value& params) {
    context.print_json(context.daemon().call(method, params));
    context.out().flush();
}

void print_reply(Context& context, const Json::Value& reply) {
    context.print_json(reply);
    context.out().flush();
    reply::throw_error(reply);
}

/** What people want to know of it isn't in the answer: the time from the request to there. */
void ping(Context& context, const Json::Value& params) {
    const std::string where = context.daemon().address().text;  // connected to from here on
    const auto begin = std::chrono::steady_clock::now();
    context.daemon().call("ping", params);
    const std::chrono::duration<double, std::milli> taken = std::chrono::steady_clock::now() - begin;
    char text[48];
    snprintf(text, sizeof(text), "%.2f ms", taken.count());
    context.out().print("answer from " + harmless(where) + " in " + text + "\n");
}

}  // namespace

void ask_and_print_reply(Context& context, const std::string& method, const Json::Value& params) {
    if (context.options().result) return print_result(context, method, params);
    const std::string text = context.daemon().call_text(method, params);
    const Json::Value reply = reply::parse(text);
    if (context.out().interactive()) return print_reply(context, reply);
    context.out().print(text.empty() || text.back() != '\n' ? text + '\n' : text);
    context.out().flush();
    reply::throw_error(reply);
}

void ask_and_print_reply(Context& context, const std::string& method, const Json::Value& params,
                         const Json::Value& id) {
    if (context.options().result) return print_result(context, method, params);
    Json::Value reply = reply::parse(context.daemon().call_text(method, params));
    reply["id"] = id;
    print_reply(context, reply);
}

namespace {

void show(Context& context, const std::string& method, const Json::Value& params) {
    if (context.json()) return ask_and_print_reply(context, method, params);
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
