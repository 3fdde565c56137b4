#include "client/check/special_rules.h"

#include <algorithm>
#include <stdexcept>

#include "client/text/json_access.h"

namespace brumectl::check {

namespace {

constexpr unsigned MAX_DP_WORKERS = 128;
constexpr unsigned MAX_COFFEE_ARGS = 8;

/** As the daemon reads an address: leading blanks, a sign and 0x are allowed. */
bool is_hex(const std::string& text) {
    try {
        size_t consumed = 0;
        std::stoull(text, &consumed, 16);
        return consumed == text.size();
    } catch (const std::logic_error&) {
        return false;
    }
}

void check_workers(const Json::Value& params, const Build& build, Report& report) {
    const Json::Value& resources = params["resources"];
    if (!resources.isObject() || !resources.isMember("dp_workers")) return;
    const Json::Value& workers = resources["dp_workers"];
    if (build.slave_mode)
        report.error(
            workers,
            "activate: in slave mode 'resources.dp_workers' is refused, the host system decides on it");
    else if (workers.isUInt64() && workers.asUInt64() > MAX_DP_WORKERS && workers.asUInt64() <= UINT16_MAX)
        report.error(workers, "activate: 'resources.dp_workers' is limited to 128");
}

void check_arguments(const Json::Value& params, const Build&, Report& report) {
    const Json::Value& args = params["args"];
    if (args.isArray() && args.size() > MAX_COFFEE_ARGS)
        report.error(args, "coffee: 'args' can hold at most 8 numbers");
}

void check_shared_memory(const Json::Value& params, const Build& build, Report& report) {
    const Json::Value& shm = params["shm"];
    if (build.bare_metal && (shm.isNull() || member_of(shm, "type") == "auto"))
        report.error(shm.isNull() ? params : shm, "load: on bare metal 'shm' must be of the type \"devmem\"");
    const Json::Value& addr = member_of(shm, "addr");
    if (member_of(shm, "type") == "devmem" && addr.isString() && !is_hex(addr.asString()))
        report.error(addr, "load: 'shm.addr' must be a hexadecimal number of at most 64 bits");
}

struct Words {
    const char* cmd;
    const char* name;
    std::vector<std::string> words;
};

/** The words for `op` and `sev` depend on `cmd`. */
void check_notification_words(const Json::Value& params, const Build&, Report& report) {
    static const std::vector<Words> WORDS = {
        {"log", "op", {"show", "clear"}},
        {"alerts", "op", {"show", "clear"}},
        {"alerts", "sev", {"warn", "error"}},
        {"socket", "op", {"add", "delete", "ls"}},
    };
    for (const Words& rule : WORDS) {
        const Json::Value& word = params[rule.name];
        if (params["cmd"] != rule.cmd || !word.isString()) continue;
        if (std::find(rule.words.begin(), rule.words.end(), word.asString()) != rule.words.end()) continue;
        std::string list;
        for (const std::string& known : rule.words)
            list += (list.empty() ? "\"" : ", \"") + known + "\"";
        report.error(word, std::string("notifications: with 'cmd' \"") + rule.cmd + "\", '" + rule.name +
                               "' can only be one of " + list);
    }
}

struct Rule {
    const char* method;
    void (*check)(const Json::Value& params, const Build& build, Report& report);
};
constexpr Rule RULES[] = {
    {"activate", check_workers},
    {"coffee", check_arguments},
    {"load", check_shared_memory},
    {"notifications", check_notification_words},
};

}  // namespace

void check_special_rules(const std::string& method, const Json::Value& params, const Build& build,
                         Report& report) {
    for (const Rule& rule : RULES)
        if (method == rule.method) rule.check(params, build, report);
}

}  // namespace brumectl::check
