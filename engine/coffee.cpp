#include "coffee.h"

#include "engine_error.h"

namespace corvo::engine {
namespace {

using Args = std::vector<uint32_t>;

constexpr uint32_t DEFAULT_DUMP = 100;
/** The daemon serves nothing else while it writes a dump. */
constexpr uint32_t MAX_DUMP = 10000;

std::string help(Shards*, const Args&);

std::string remove_all_links(Shards* path, const Args&) {
    if (path) path->remove_all_links();
    return "all links removed";
}

std::string kill_all_flows(Shards* path, const Args&) {
    return std::to_string(path ? path->kill_all_flows() : 0) + " flows removed";
}

std::string count(Shards* path, const Args&) {
    return std::to_string(path ? path->flow_count() : 0);
}

std::string dump(Shards* path, const Args& args) {
    uint32_t limit = args.empty() ? DEFAULT_DUMP : args[0];
    if (limit > MAX_DUMP) {
        throw Error("the limit of dp.ft.dump is " + std::to_string(limit) + ", expecting at most " +
                    std::to_string(MAX_DUMP));
    }
    return path ? path->dump(limit) : "";
}

struct Function {
    const char* name;
    size_t max_args;
    std::string (*run)(Shards*, const Args&);
    const char* usage;
};
constexpr Function FUNCTIONS[] = {
    {"help", 0, help, "list these functions"},
    {"dp.ft.count", 0, count, "number of flows"},
    {"dp.ft.dump", 1, dump, "[limit]: one line per flow, 100 flows by default, 10000 at most"},
    {"dp.ft.sui_ft_kill_all_flows", 0, kill_all_flows, "forget all flows"},
    {"dp.veld.sui_lut_remove_all_links", 0, remove_all_links, "forget what was learned about hosts"},
};

std::string help(Shards*, const Args&) {
    std::string out;
    for (const Function& function : FUNCTIONS) {
        out.append(function.name).append(": ").append(function.usage).append("\n");
    }
    return out;
}

}  // namespace

std::string run_coffee(Shards* path, const std::string& func, const std::vector<uint32_t>& args) {
    for (const Function& function : FUNCTIONS) {
        if (func != function.name) continue;
        if (args.size() > function.max_args) {
            throw Error(func + " takes at most " + std::to_string(function.max_args) + " arguments, got " +
                        std::to_string(args.size()));
        }
        return function.run(path, args);
    }
    throw Error("no function '" + func + "', try 'help'");
}

}  // namespace corvo::engine
