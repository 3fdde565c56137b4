// From a request's text to its reply's text, through every method of the real command table.
//
// First byte, modulo 3: the engine's state beforehand: '0' active, '1' not loaded, '2' loaded. Second byte:
// from 'a' on it picks a method by its place in the sorted table, and the rest is the text of its params;
// below 'a', the rest is the whole request.

#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <cassert>
#include <memory>

#include "fuzz/fuzz_input.h"
#include "infra/corvo_notif.h"
#include "infra/json/corvo_json.h"
#include "server/corvo_server.h"
#include "server/corvo_server_loader.h"
#include "support/capture_logger.h"
#include "support/temp_dir.h"
#include "tools/captures/capture_files.h"
#include "tools/captures/sample_flows.h"

namespace {

using corvo::server::Engine;

/** Changes the parameters of a command before it runs, where they could reach outside the test. */
class ConfinedCommand : public corvo::RpcCommand {
 public:
    using Change = void (*)(Json::Value& params);

    ConfinedCommand(corvo::RpcCommand& inner, Change change)
        : RpcCommand(corvo::RpcTableView::name(inner)), m_inner(inner), m_change(change) {}

 protected:
    int _run(const std::string& method, const Json::Value& params, Json::Value& res) override {
        Json::Value confined = params;
        m_change(confined);
        return m_inner.run(method, confined, res);
    }

 private:
    corvo::RpcCommand& m_inner;
    Change m_change;
};

/** Turns a path into a name in the current folder. */
void flatten(Json::Value& params, const char* member) {
    if (!params.isObject() || !params[member].isString()) return;
    std::string path = params[member].asString();
    std::replace(path.begin(), path.end(), '/', '_');
    params[member] = path;
}

struct Confined : corvo::RpcComponent {
    explicit Confined(const corvo::RpcCommandsTable& table) : RpcComponent("") {
        const auto confine = [&](const char* method, ConfinedCommand::Change change) {
            add(new ConfinedCommand(*table.lookup(method), change));
        };
        confine("push_pcap", [](Json::Value& params) { flatten(params, "filename"); });
        confine("notifications", [](Json::Value& params) { flatten(params, "socket"); });
        // A short name for the only library.
        confine("load", [](Json::Value& params) {
            if (params.isObject() && params["path"] == "inert") params["path"] = FUZZ_INERT_ENGINE;
        });
        // The only method that ends the server when its parameters are of the wrong type, and is meant to.
        confine("echo", [](Json::Value& params) {
            if (!params.isObject()) params = Json::Value();
        });
    }
};

/** Answers requests without a socket or process of its own. */
class EmbeddedServer : public corvo::server::Server {
 public:
    static corvo::server::Options options() {
        corvo::server::Options options;
        options.mode = corvo::server::Options::MODE_USERSPACE;
        return options;
    }
    explicit EmbeddedServer(Engine::state_e state) : Server(options()) {
        become_global();
        create_commands();
        cmds().load_component(new Confined(cmds()));
        create_engine();
        corvo::api::InitConfig config;
        config.cmds = &cmds();
        if (state >= Engine::STATE_LOADED) engine()->load_engine(FUZZ_INERT_ENGINE, config);
        if (state >= Engine::STATE_ACTIVE)
            engine()->activate({.max_flows = 16, .dp_workers = 1, .writable_shm = false});
    }
    ~EmbeddedServer() { engine()->cleanup(); }

    std::string answer(const std::string& request) {
        std::string reply;
        handle_rpc_request(request, reply);
        return reply;
    }
    std::vector<std::string> methods() {
        std::vector<std::string> names;
        get_rpc_cmds(names);
        std::sort(names.begin(), names.end());
        return names;
    }
};

/** Shared by all inputs: a folder with two captures, and the library, kept open to keep its counters. */
struct World {
    World() {
        [[maybe_unused]] const int rc = chdir(dir.path().c_str());
        assert(rc == 0);
        test::write_pcap("p", test::sample_flow("dns").frames);
        test::write_erf("e", test::sample_flow("dns").frames);
        [[maybe_unused]] const void* handle = dlopen(FUZZ_INERT_ENGINE "/libcvcp_u.so", RTLD_NOW);
        assert(handle);
    }
    test::TempDir dir;
};

/** The hub belongs to the process: nothing may be left for the next input. */
void forget_notifications() {
    const auto ask = [](const char* cmd, const char* op, const Json::Value& socket = {}) {
        Json::Value request, answer;
        request["cmd"] = cmd;
        request["op"] = op;
        request["socket"] = socket;
        corvo::notif::ops(request, answer);
        return answer;
    };
    const Json::Value sockets = ask("socket", "ls");
    for (const Json::Value& socket : sockets["ls"])
        ask("socket", "delete", socket["name"]);
    ask("log", "clear");
    ask("alerts", "clear");
}

void check_single(const Json::Value& reply) {
    if (reply.isNull()) return;  // nobody asked for an answer
    assert(reply.isObject() && reply["jsonrpc"] == "2.0" && reply.isMember("id"));
    assert(reply.isMember("result") != reply.isMember("error"));
    assert(reply.isMember("result") ||
           (reply["error"]["code"].isInt() && reply["error"]["message"].isString()));
}

void check(const std::string& text) {
    Json::Value reply;
    [[maybe_unused]] const bool parsed = corvo::json::parse(text, reply);
    assert(parsed && text.ends_with('\n'));
    if (!reply.isArray()) return check_single(reply);
    for (const Json::Value& single : reply)
        check_single(single);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const World world;
    constexpr Engine::state_e STATES[] = {Engine::STATE_ACTIVE, Engine::STATE_UNLOADED, Engine::STATE_LOADED};

    fuzz::Input input(data, size);
    const Engine::state_e state = STATES[input.u8() % std::size(STATES)];
    const uint8_t pick = input.u8();
    corvo::Logger::clear_log_file("log");
    const test::CaptureLogger logger(corvo::Logger::DEBUG, "log");
    EmbeddedServer server(state);
    std::string request = input.rest();
    if (pick >= 'a') {
        const std::vector<std::string> methods = server.methods();
        request = R"({"jsonrpc":"2.0","id":1,"method":")" + methods[(pick - 'a') % methods.size()] +
                  R"(","params":)" + request + "}";
    }
    check(server.answer(request));
    forget_notifications();
    return 0;
}
