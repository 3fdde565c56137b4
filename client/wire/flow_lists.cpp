#include "client/wire/flow_lists.h"

#include <algorithm>

#include "client/failure.h"
#include "client/interrupt.h"
#include "client/text/engine_state.h"
#include "client/text/json_access.h"

namespace brumectl::flow_lists {

std::string obstacle(const Ask& ask, const Json::Value& status, const List& list) {
    const auto state = state_of(string_of(member_of(status, "state")));
    if (state == UNLOADED) return "no engine is loaded";
    const std::vector<std::string> methods = texts_of(ask("cmds", Json::Value()));
    if (std::find(methods.begin(), methods.end(), list.method) == methods.end())
        return std::string("the engine that is loaded tells no ") + list.member + ": it has no method '" +
               list.method + "'";
    return state == LOADED ? "the engine isn't active" : "";
}

namespace {

/** The engine may have been deactivated or unloaded since it was looked at: then that is the refusal's text.
 */
Json::Value ask_page(const Ask& ask, const List& list, const Json::Value& params) {
    try {
        return ask(list.method, params);
    } catch (const ErrorReply& e) {
        const std::string reason = obstacle(ask, ask("status", Json::Value()), list);
        throw reason.empty() ? e : ErrorReply(e.code(), reason);
    }
}

}  // namespace

void read(const Ask& ask, const List& list, Json::Value params, const Take& take) {
    if (!params.isMember("limit")) params["limit"] = PAGE;
    for (;;) {
        const Json::Value page = ask_page(ask, list, params);
        const Json::Value& rows = member_of(page, list.member);
        if (!rows.isArray()) throw Failure(std::string("the answer of '") + list.method + "' is no list");
        for (const Json::Value& row : rows)
            if (row.isObject() && !take(row)) return;
        const Json::Value& cursor = member_of(page, "cursor");
        if (!cursor.isString()) return;
        params["cursor"] = cursor;
        interrupt::check();
    }
}

Ask asker(Daemon& daemon) {
    return [&daemon](const char* method, const Json::Value& params) { return daemon.call(method, params); };
}

}  // namespace brumectl::flow_lists
