// From the text of a request to the text of its reply, compared with the least that any server on jsoncpp
// would do.
#include <benchmark/benchmark.h>
#include <json/reader.h>
#include <json/writer.h>

#include "infra/json/corvo_jsonrpc_v2.h"

namespace {

/** Returns a prepared value. */
class Canned : public corvo::RpcCommand {
 public:
    Canned(const std::string& name, Json::Value result) : RpcCommand(name), m_result(std::move(result)) {}

 private:
    int _run(const std::string&, const Json::Value&, Json::Value& res) override {
        res["result"] = m_result;
        return corvo::CMD_OK;
    }

    Json::Value m_result;
};

Json::Value small_result() {
    Json::Value result;
    result["ts"] = 1234567;
    return result;
}

/** About 8 KB of text, like a list of counters. */
Json::Value large_result() {
    Json::Value result(Json::arrayValue);
    for (int i = 0; i < 120; ++i) {
        Json::Value entry;
        entry["name"] = "component.counter_" + std::to_string(i);
        entry["value"] = i * 7919;
        entry["unit"] = "packets";
        result.append(entry);
    }
    return result;
}

const corvo::RpcCommandsTable& table() {
    static corvo::RpcCommandsTable* const made = [] {
        auto* component = new corvo::RpcComponent("");
        component->add(new Canned("ping", small_result()));
        component->add(new Canned("counters", large_result()));
        auto* t = new corvo::RpcCommandsTable;
        t->load_component(component);
        return t;
    }();
    return *made;
}

void serve(benchmark::State& state, const std::string& request) {
    const auto& commands = table();
    size_t size = 0;
    for (auto _ : state) {
        std::string reply = corvo::ReqParser(request, commands).execute();
        size = reply.size();
        benchmark::DoNotOptimize(reply);
    }
    state.counters["reply_bytes"] = static_cast<double>(size);
}

void minimal_server(benchmark::State& state, const std::string& request, const Json::Value& result) {
    for (auto _ : state) {
        Json::Value root;
        Json::Reader().parse(request, root, false);
        Json::Value reply;
        reply["jsonrpc"] = "2.0";
        reply["id"] = root["id"];
        reply["result"] = result;
        std::string text = Json::FastWriter().write(reply);
        benchmark::DoNotOptimize(text);
    }
}

const std::string PING = R"({"jsonrpc":"2.0","id":7,"method":"ping"})";
const std::string COUNTERS = R"({"jsonrpc":"2.0","id":7,"method":"counters"})";
const std::string COUNTERS_LZ4 = R"({"jsonrpc":"2.0","id":7,"method":"counters","accept":["lz4"]})";

BENCHMARK_CAPTURE(serve, ping, PING);
BENCHMARK_CAPTURE(minimal_server, ping, PING, small_result());
BENCHMARK_CAPTURE(serve, result_8k, COUNTERS);
BENCHMARK_CAPTURE(minimal_server, result_8k, COUNTERS, large_result());
BENCHMARK_CAPTURE(serve, result_8k_lz4, COUNTERS_LZ4);

}  // namespace
