// Requests: from their text through the table of commands to the reply.
#include <gtest/gtest.h>
#include <lz4.h>

#include <algorithm>
#include <functional>
#include <string>
#include <utility>

#include "infra/corvo_rpc_command.h"
#include "infra/json/corvo_json.h"
#include "infra/json/corvo_jsonrpc_v2.h"
#include "support/error_of.h"
#include "support/temp_dir.h"
#include "utils/base64.h"

namespace corvo {
namespace {

/** A command whose body the test provides. */
class Scripted : public RpcCommand {
 public:
    using Body = std::function<void(Scripted& self, const Json::Value& params, Json::Value& res)>;

    explicit Scripted(const std::string& name, Body body = {}) : RpcCommand(name), m_body(std::move(body)) {}

 private:
    int _run(const std::string&, const Json::Value& params, Json::Value& res) override {
        if (m_body) m_body(*this, params, res);
        return CMD_OK;
    }

    Body m_body;
};

/** `load_component` takes ownership of the result. */
RpcComponent* make_component(const std::string& name, std::initializer_list<RpcCommand*> commands) {
    auto* made = new RpcComponent(name);
    for (RpcCommand* command : commands)
        made->add(command);
    return made;
}

using Outcome = std::pair<uint32_t, std::string>;  ///< the code and the explanation

Outcome run(const Scripted::Body& body, const std::string& params) {
    Scripted command("x", body);
    Json::Value value, res;
    EXPECT_TRUE(json::parse(params, value)) << params;
    const auto rc = static_cast<uint32_t>(command.run("x", value, res));
    return {rc, res.get("specific_err", "").asString()};
}

Scripted::Body field_is(RpcParser::field_type_e type) {
    return [type](Scripted& self, const Json::Value& params, Json::Value& res) {
        self.check_field_type(params, "f", type, res);
    };
}

TEST(RpcCommandsTable, KeysAreMatchedWholeTheLastOneLoadedWinsAndTheWildcardTakesTheRest) {
    RpcCommandsTable table;
    table.load_component(make_component("", {new Scripted("ping"), new Scripted("x")}));
    table.load_component(make_component("core", {new Scripted("ping")}));
    auto* last = new Scripted("x");
    table.load_component(make_component("", {last}));

    std::vector<std::string> keys{"kept"};
    table.query(keys);
    std::sort(keys.begin(), keys.end());
    EXPECT_EQ(keys, (std::vector<std::string>{"core.ping", "kept", "ping", "x"}));
    EXPECT_EQ(table.lookup("x"), last);
    EXPECT_NE(table.lookup("core.ping"), table.lookup("ping"));
    EXPECT_EQ(table.lookup("core"), nullptr);

    auto* any = new Scripted("*");
    table.load_component(make_component("*", {any}));
    EXPECT_EQ(table.lookup("core"), any);
    EXPECT_NE(table.lookup("ping"), any);
}

Scripted::Body is_valid(void (RpcParser::*validate)(const std::string&, Json::Value&),
                        const std::string& text) {
    return [=](Scripted& self, const Json::Value&, Json::Value& res) { (self.*validate)(text, res); };
}

TEST(RpcParser, FieldsPathsAndAddressesAreVerifiedAndFailuresAreToldByCode) {
    using P = RpcParser;
    test::TempDir dir;
    const std::string file = dir.write("f", "x"), hidden = dir.path() + std::string("\0x", 2);
    const std::string no_dir = "' is not a valid directory or does not exists";
    const Outcome ok{CMD_OK, ""};
    const auto bad = [](const std::string& how) {
        return Outcome{CMD_BAD_PARAMS, "error at offset: 5 - 'f' " + how};
    };
    const auto failed = [](const std::string& text) { return Outcome{CMD_EXEC_FAILED, text}; };
    const auto internal = [](const std::string& text) { return Outcome{CMD_INTERNAL_ERR, text}; };
    const std::tuple<const char*, Scripted::Body, Outcome> cases[] = {
        {"5.0", field_is(P::TYPE_BYTE), ok},
        {"256", field_is(P::TYPE_BYTE), bad("has size bigger than uint8.")},
        {"1.5", field_is(P::TYPE_BYTE), bad("is 'double', expecting 'byte'")},
        {"18446744073709551615", field_is(P::TYPE_UINT64), ok},
        {"18446744073709551616", field_is(P::TYPE_UINT64), bad("is 'double', expecting 'uint64'")},
        {"-2147483648", field_is(P::TYPE_INT), ok},
        {"-2147483649", field_is(P::TYPE_INT), bad("is 'int', expecting 'int'")},
        {"true", field_is(P::TYPE_DOUBLE), bad("is 'boolean', expecting 'double'")},
        {"0", field_is(P::TYPE_UDOUBLE), ok},
        {"-0.5", field_is(P::TYPE_UDOUBLE), bad("has negative value.")},
        {"{}", field_is(P::TYPE_ARRAY), bad("is 'object', expecting 'array'")},
        {"0", is_valid(&P::validate_path, dir.path()), ok},
        {"0", is_valid(&P::validate_path, file), failed("path '" + file + no_dir)},
        {"0", is_valid(&P::validate_path, hidden), failed("path '" + hidden + no_dir)},
        {"0", is_valid(&P::validate_file, file), ok},
        {"0", is_valid(&P::validate_file, "/no"),
         failed("file '/no' is not a valid file or does not exists")},
        {"0", is_valid(&P::validate_ip, "fe80::1"), ok},
        {"0", is_valid(&P::validate_ip, "10.0.0"), failed("invalid IPv4 / IPv6 address '10.0.0'")},
        {"0", [](auto& self, auto&, auto& res) { self.generate_internal_err(res, "odd"); }, internal("odd")},
        {"0", [](auto&, auto&, auto&) { Json::throwLogicError("misuse"); }, internal("misuse")},
    };
    for (const auto& [value, check, outcome] : cases)
        EXPECT_EQ(run(check, std::string("{\"f\":") + value + "}"), outcome) << value;
}

TEST(RpcParser, AChoiceComesBackAsThePointerOfTheList) {
    static const char* const add = "add";
    const char* got = nullptr;
    auto choose = [&](Scripted& self, const Json::Value& params, Json::Value& res) {
        got = self.parse_choice<const char*>(params, "op", {add, "delete"}, res);
    };
    EXPECT_EQ(run(choose, R"({"op":"add"})").first, CMD_OK);
    EXPECT_EQ(got, add);
    const Outcome refused{CMD_BAD_PARAMS, "field 'op' can only be one of ['add' ,'delete']"};
    for (const char* params : {R"({"op":"ad"})", R"({"op":"add\u0000"})", R"({"op":[]})", R"({"op":1})"}) {
        EXPECT_EQ(run(choose, params), refused) << params;
    }
    EXPECT_EQ(run(choose, "null"), (Outcome{CMD_BAD_PARAMS, "field 'op' is missing"}));
}

/** A table of commands; "fail" takes its result and its explanation from its parameters. */
class JsonRpc : public ::testing::Test {
 protected:
    JsonRpc() {
        auto echo = [](Scripted&, const Json::Value& params, Json::Value& res) { res["result"] = params; };
        auto text = [](Scripted&, const Json::Value& params, Json::Value& res) {
            res[RESULT_TEXT] = json::write_line(params);
        };
        auto fail = [](Scripted&, const Json::Value& params, Json::Value& res) {
            if (params.isMember("why")) res["specific_err"] = params["why"];
            throw RpcCommandException("", params["rc"].asUInt());
        };
        auto strict = [](Scripted& self, const Json::Value& params, Json::Value& res) {
            self.check_field_type(params, "port", RpcParser::TYPE_UINT32, res);
        };
        auto count = [this](Scripted&, const Json::Value&, Json::Value&) { ++m_calls; };
        m_table.load_component(make_component(
            "", {new Scripted("echo", echo), new Scripted("text", text), new Scripted("fail", fail),
                 new Scripted("count", count), new Scripted("strict", strict)}));
    }

    /** The reply, with the time that the command took set to 0. */
    std::string serve(const std::string& msg) { return untimed(ReqParser(msg, m_table).execute()); }

    /** The same through values: the responses of all elements, written as one text. */
    std::string serve_by_value(const std::string& msg) {
        ReqParser::Objects objects;
        ReqParser(msg, m_table).parse(objects);
        Json::Value reply;
        for (Json::ArrayIndex i = 0; i < objects.size(); ++i)
            objects[i]->execute(reply[i]);
        return untimed(json::write_line(objects.size() == 1 ? reply[0] : reply));
    }

    static std::string untimed(std::string reply) {
        const std::string member = "\"ms\":";
        for (size_t at = 0; (at = reply.find(member, at)) != std::string::npos;) {
            at += member.size();
            reply.replace(at, reply.find_first_not_of("0123456789", at) - at, "0");
        }
        return reply;
    }

    RpcCommandsTable m_table;
    int m_calls = 0;
};

std::string call(const std::string& rest) {
    return R"({"jsonrpc":"2.0","id":7,)" + rest + "}";
}

std::string success(const std::string& result) {
    return R"({"fmt":{"size":)" + std::to_string(result.size() + 1) +
           R"(,"type":"plain"},"id":7,"jsonrpc":"2.0","ms":0,"result":)" + result + "}";
}

std::string error(int code, const std::string& members, const std::string& id = "7") {
    return R"({"error":{"code":)" + std::to_string(code) + R"(,"message":)" + members + R"(},"id":)" + id +
           R"(,"jsonrpc":"2.0"})";
}

TEST_F(JsonRpc, EachRequestGetsItsExactReply) {
    const std::string ok = call(R"("method":"count")");
    const std::string done = success("null");
    const std::string bad_version = R"("Invalid JSONRPC Version")";
    const std::string invalid = error(-32600, R"("Invalid Request")", "null");
    const std::string bad_accept = "\"Invalid 'accept' field type (should be array)\"";
    std::string nulls = "null";
    for (int i = 1; i < 50000; ++i)
        nulls += ",null";
    const std::pair<std::string, std::string> cases[] = {
        // results
        {ok, done},
        {"/* hello */ " + ok + " trailing", done},
        {call(R"("method":"echo","params":{"b":[1,-2,0.5],"a":"\u00e9\"/%s"})"),
         success(R"({"a":"\u00e9\"/%s","b":[1,-2,0.5]})")},
        {call(R"("method":"echo","params":[1e300,-0.0,18446744073709551615,"\t\u0001\ud83d\ude00",{}])"),
         success(R"([1.0000000000000001e+300,-0.0,18446744073709551615,"\t\u0001\ud83d\ude00",{}])")},
        {R"({"jsonrpc":"2.0","id":{"b":[""],"a":1},"method":"count"})",
         R"({"fmt":{"size":5,"type":"plain"},"id":{"a":1,"b":[""]},"jsonrpc":"2.0","ms":0,"result":null})"},
        // notifications; 0 and the empty text are ids
        {R"({"jsonrpc":"2.0","method":"count"})", "null"},
        {R"({"jsonrpc":"2.0","id":null,"method":"nosuch"})", "null"},
        {"null", "null"},
        {"{}", "null"},
        {R"({"id":0})", error(-32600, bad_version, "0")},
        {R"({"id":""})", error(-32600, bad_version, R"("")")},
        // requests that are refused
        {R"({"id":7,"jsonrpc":2.0,"method":"count"})", error(-32600, bad_version)},
        {call(R"("method":[])"), error(-32600, R"("Invalid format for method name")")},
        {call(R"("method":"")"), error(-32600, R"("Missing Method Name")")},
        {call(R"("params":{})"), error(-32600, R"("Missing Method Name")")},
        {call(R"("method":5)"), error(-32601, R"("Method '5' not registered")")},
        {call(R"("method":"%n%s")"), error(-32601, R"("Method '%n%s' not registered")")},
        {call(R"("method":"count","accept":"lz4")"), error(-32600, bad_accept)},
        {call(R"("method":"count","accept":["lz4",[]])"), error(-32600, R"("Invalid encoding format")")},
        {call(R"("method":"count","accept":["LZ4",1,null])"), done},
        {"5", invalid},
        {"[5]", invalid},
        // commands that fail
        {call(R"("method":"fail","params":{"rc":1,"why":"w"})"),
         error(-32602, R"("Bad paramters for method","specific_err":"w")")},
        {call(R"("method":"strict","params":{"port":"x"})"),
         error(-32602,
               R"("Bad paramters for method","specific_err":"error at offset: 59 - 'port' is 'string', )"
               R"(expecting 'uint32'")")},
        {call(R"("method":"fail","params":{"rc":2})"),
         error(-32000, R"("Failed To Execute Method","specific_err":null)")},
        {call(R"("method":"fail","params":{"rc":3,"why":[1]})"),
         error(-32603, R"("Internal Server Error","specific_err":[1])")},
        {call(R"("method":"fail","params":{"rc":4,"why":"no size"})"), error(-32001, R"("Try again later")")},
        {call(R"("method":"fail","params":{"rc":4,"why":[1]})"),
         error(-32001, R"("Try again later","specific_err":[1])")},
        {call(R"("method":"fail","params":{"rc":5})"),
         error(-32002, R"("Work in progress","specific_err":null)")},
        {call(R"("method":"fail","params":{"rc":6,"why":{}})"), error(-32003, R"("No results for request")")},
        {call(R"("method":"fail","params":{"rc":7,"why":"w"})"), R"({"id":7,"jsonrpc":"2.0"})"},
        // batches
        {"[]", "null"},
        {"[" + ok + "]", done},
        {"[" + nulls + "]", "[" + nulls + "]"},
        {"[" + ok + "," + call(R"("method":"x")") + R"(,{"jsonrpc":"2.0","method":"count"},true])",
         "[" + done + "," + error(-32601, R"("Method 'x' not registered")") + ",null," + invalid + "]"},
        // no JSON at all
        {"", error(-32700,
                   R"("Bad JSON Format: * Line 1, Column 1\n  Syntax error: value, object or array )"
                   R"(expected.\n")",
                   "null")},
        {std::string(100000, '['),
         error(-32700, R"("Bad JSON Format: * Values are nested too deeply.\n")", "null")},
    };
    for (const auto& [request, reply] : cases) {
        EXPECT_EQ(serve(request), reply + "\n") << request.substr(0, 200);
        EXPECT_EQ(serve_by_value(request), reply + "\n") << request.substr(0, 200);
    }
}

TEST_F(JsonRpc, ANotificationRunsAndAParseErrorRunsNothing) {
    serve(R"([{"jsonrpc":"2.0","method":"count"},{"jsonrpc":"2.0","method":"count"}])");
    EXPECT_EQ(m_calls, 2);
    serve(R"([{"jsonrpc":"2.0","method":"count"},)");
    serve(R"({"jsonrpc":"2.0","method":"count","accept":"lz4"})");
    EXPECT_EQ(m_calls, 2);
}

TEST_F(JsonRpc, OnlyResultsAboveTheThresholdArePackedForThoseWhoAsk) {
    const std::tuple<const char*, size_t, const char*, const char*> cases[] = {
        // the command leaves a value or a text; bytes of the result, newline included
        {"echo", 4096, R"(["lz4"])", "plain"}, {"echo", 4097, R"(["gzip","lz4"])", "lz4"},
        {"echo", 4097, R"(["LZ4"])", "plain"}, {"echo", 4097, "null", "plain"},
        {"text", 4096, R"(["lz4"])", "plain"}, {"text", 4097, R"(["lz4"])", "lz4"},
    };
    for (const auto& [method, size, accept, type] : cases) {
        const std::string text = "\"" + std::string(size - 3, 'a') + "\"";
        const std::string request =
            call("\"method\":\"" + std::string(method) + "\",\"accept\":" + accept + ",\"params\":" + text);
        const std::string reply = serve(request);
        Json::Value root;
        ASSERT_TRUE(json::parse(reply, root));
        EXPECT_EQ(reply, serve_by_value(request));
        EXPECT_EQ(root["fmt"]["size"].asUInt(), size);
        EXPECT_EQ(root["fmt"]["type"].asString(), type) << size << accept;
        if (root["fmt"]["type"] != "lz4") continue;
        const std::string block = b64_decode(root["result"].asString());
        std::string plain(size, '\0');
        const int length = static_cast<int>(size);
        EXPECT_EQ(LZ4_decompress_safe(block.data(), plain.data(), static_cast<int>(block.size()), length),
                  length);
        EXPECT_EQ(plain, text + "\n");
    }
}

TEST_F(JsonRpc, ACommandThatIsUnloadedWithinABatchIsNoLongerThere) {
    std::unique_ptr<RpcComponent> engine(make_component("engine", {new Scripted("go")}));
    m_table.load_component(engine.get());
    auto unload = [&](Scripted&, const Json::Value&, Json::Value&) {
        m_table.unload_component("engine");
        engine.reset();
    };
    m_table.load_component(make_component("", {new Scripted("unload", unload)}));
    EXPECT_EQ(serve("[" + call(R"("method":"unload")") + "," + call(R"("method":"engine.go")") + "]"),
              "[" + success("null") + "," + error(-32601, R"("Method 'engine.go' not registered")") + "]\n");
    EXPECT_EQ(test::error_of([&] { m_table.unload_component("engine"); }),
              "component engine was never loaded");
}

TEST_F(JsonRpc, ACommandIsTheOneOfTheBatchsStartThoughAnotherTakesItsName) {
    const auto load_go = [this](const char* text) {
        auto say = [text](Scripted&, const Json::Value&, Json::Value& res) { res["result"] = text; };
        m_table.load_component(make_component("", {new Scripted("go", say)}));
    };
    auto load = [&](Scripted&, const Json::Value&, Json::Value&) { load_go("new"); };
    m_table.load_component(make_component("", {new Scripted("load", load)}));
    load_go("old");
    const std::string batch = "[" + call(R"("method":"load")") + "," + call(R"("method":"go")") + "]";
    EXPECT_NE(serve(batch).find("old"), std::string::npos);
    EXPECT_NE(serve(batch).find("new"), std::string::npos);
}

TEST(Json, ATextThatFailsToParseIsLeftAloneAndLeavesTheValueAlone) {
    Json::Value value("kept");
    for (const std::string& text : {std::string("[1,"), std::string("{%s"), std::string(2000, '[')}) {
        EXPECT_FALSE(json::parse(text, value)) << text;
        EXPECT_EQ(ReqParser::pretty_json_str(text), text);
    }
    EXPECT_EQ(value, "kept");
    EXPECT_EQ(ReqParser::pretty_json_str("{\"a\":1}"), "{\n   \"a\" : 1\n}\n");
}

}  // namespace
}  // namespace corvo
