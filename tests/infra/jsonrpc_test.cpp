#include "infra/corvo_jsonrpc_v2.h"

#include <gtest/gtest.h>
#include <lz4.h>

#include <random>
#include <regex>

#include "infra/corvo_json.h"
#include "infra/scripted_command.h"
#include "utils/base64.h"

namespace corvo {
namespace {

using Scripted = test::ScriptedCommand;

/** A server's table: echo, fail (with a result and an explanation by its parameters) and a counter. */
class JsonRpc : public ::testing::Test {
 protected:
    JsonRpc() {
        auto echo = [](Scripted&, const Json::Value& params, Json::Value& res) { res["result"] = params; };
        auto fail = [](Scripted&, const Json::Value& params, Json::Value& res) {
            if (params.isMember("why")) res["specific_err"] = params["why"];
            throw RpcCommandException("", params["rc"].asUInt());
        };
        auto count = [this](Scripted&, const Json::Value&, Json::Value&) { ++m_calls; };
        m_table.load_component(test::make_component(
            "", {new Scripted("echo", echo), new Scripted("fail", fail), new Scripted("count", count)}));
    }

    /** The reply, with the time that the command took set to 0. */
    std::string serve(const std::string& msg) {
        static const std::regex took("\"ms\":[0-9]+");
        return std::regex_replace(ReqParser(msg, m_table).execute(), took, "\"ms\":0");
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
    const std::pair<std::string, std::string> cases[] = {
        // results
        {ok, done},
        {"/* hello */ " + ok + " trailing", done},
        {call(R"("method":"echo","params":{"b":[1,-2,0.5],"a":"\u00e9\"/%s"})"),
         success(R"({"a":"\u00e9\"/%s","b":[1,-2,0.5]})")},
        {call(R"("method":"echo","params":[])"), success("[]")},
        {call(R"("method":"echo","params":5,"accept":["lz4"])"), success("5")},
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
        {call(R"("method":true)"), error(-32601, R"("Method 'true' not registered")")},
        {call(R"("method":"%n%s")"), error(-32601, R"("Method '%n%s' not registered")")},
        {call(R"("method":"count","accept":"lz4")"), error(-32600, bad_accept)},
        {call(R"("method":"count","accept":{})"), error(-32600, bad_accept)},
        {call(R"("method":"count","accept":["lz4",[]])"), error(-32600, R"("Invalid encoding format")")},
        {call(R"("method":"count","accept":["LZ4",1,null])"), done},
        {"5", invalid},
        {R"("text")", invalid},
        {"[5]", invalid},
        {"[[]]", invalid},
        // commands that fail
        {call(R"("method":"fail","params":{"rc":1,"why":"w"})"),
         error(-32602, R"("Bad paramters for method","specific_err":"w")")},
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
        {"[null]", "null"},
        {"[null,null]", "[null,null]"},
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
    }
}

/** Values of every kind, members in no order, names and texts that need escapes. */
Json::Value random_value(std::mt19937& random, int depth) {
    const auto text = [&] {
        std::string made;
        for (unsigned n = random() % 6; n > 0; --n)
            made += static_cast<char>(random() % 256);
        return made;
    };
    Json::Value value;
    switch (random() % (depth > 0 ? 8 : 6)) {
        case 0:
            return {};
        case 1:
            return random() % 2 == 0;
        case 2:
            return static_cast<int>(random());
        case 3:
            return static_cast<Json::UInt64>(random()) << 32 | random();
        case 4:
            return static_cast<double>(random()) / 7e5;
        case 5:
            return text();
        case 6:
            value = Json::arrayValue;
            for (unsigned n = random() % 5; n > 0; --n)
                value.append(random_value(random, depth - 1));
            return value;
        default:
            value = Json::objectValue;
            for (unsigned n = random() % 5; n > 0; --n)
                value[text()] = random_value(random, depth - 1);
            return value;
    }
}

TEST_F(JsonRpc, TheReplyAsTextIsThatOfTheReplyAsValue) {
    std::mt19937 random(20240607);  // NOLINT: the same values each time
    for (int i = 0; i < 400; ++i) {
        Json::Value params = random_value(random, 4);
        if (i % 10 == 0) params = std::string(4000 + static_cast<size_t>(i), 'z');
        const Json::Value id = i % 3 ? random_value(random, 2) : Json::Value(i);
        const std::vector<std::string> encodings(i % 20 == 0 ? 1 : 0, "lz4");
        RpcCommand* command = m_table.lookup("echo");
        Json::Value as_value;
        JsonRpcMethod(id, "echo", command, params, encodings, m_table).execute(as_value);
        std::string as_text;
        JsonRpcMethod(id, "echo", command, params, encodings, m_table).execute_text(as_text);
        static const std::regex took("\"ms\":[0-9]+,\"result\"");
        const auto untimed = [](const std::string& s) {
            return std::regex_replace(s, took, "\"ms\":0,\"result\"",
                                      std::regex_constants::format_first_only);
        };
        EXPECT_EQ(untimed(as_text), untimed(json::write(as_value)));
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
    const struct {
        size_t size;  ///< of the result's text, quotes and newline included
        const char* accept;
        const char* type;
    } cases[] = {
        {4096, R"(["lz4"])", "plain"}, {4097, R"(["lz4"])", "lz4"}, {4097, R"(["gzip","lz4"])", "lz4"},
        {4097, R"(["LZ4"])", "plain"}, {4097, "null", "plain"},
    };
    for (const auto& c : cases) {
        const std::string text = "\"" + std::string(c.size - 3, 'a') + "\"";
        const std::string reply =
            serve(call(R"("method":"echo","accept":)" + std::string(c.accept) + R"(,"params":)" + text));
        Json::Value root;
        ASSERT_TRUE(json::parse(reply, root));
        EXPECT_EQ(root["fmt"]["size"].asUInt(), c.size);
        EXPECT_EQ(root["fmt"]["type"].asString(), c.type) << c.size << c.accept;
        if (root["fmt"]["type"] != "lz4") continue;
        const std::string block = b64_decode(root["result"].asString());
        std::string plain(c.size, '\0');
        EXPECT_EQ(LZ4_decompress_safe(block.data(), plain.data(), static_cast<int>(block.size()),
                                      static_cast<int>(plain.size())),
                  static_cast<int>(c.size));
        EXPECT_EQ(plain, text + "\n");
    }
}

TEST_F(JsonRpc, ACommandThatIsUnloadedWithinABatchIsNoLongerThere) {
    std::unique_ptr<RpcComponent> engine(test::make_component("engine", {new Scripted("go")}));
    m_table.load_component(engine.get());
    auto unload = [&](Scripted&, const Json::Value&, Json::Value&) {
        m_table.unload_component("engine");
        engine.reset();
    };
    m_table.load_component(test::make_component("", {new Scripted("unload", unload)}));
    EXPECT_EQ(serve("[" + call(R"("method":"unload")") + "," + call(R"("method":"engine.go")") + "]"),
              "[" + success("null") + "," + error(-32601, R"("Method 'engine.go' not registered")") + "]\n");
}

TEST_F(JsonRpc, AVeryLargeBatchIsServed) {
    std::string batch = "[null";
    for (int i = 1; i < 300000; ++i)
        batch += ",null";
    batch += "]";
    EXPECT_EQ(serve(batch), batch + "\n");
}

TEST_F(JsonRpc, AFieldErrorGivesItsOffsetInTheRequest) {
    auto strict = [](Scripted& self, const Json::Value& params, Json::Value& res) {
        self.check_field_type(params, "port", RpcParser::TYPE_UINT32, res);
    };
    m_table.load_component(test::make_component("", {new Scripted("strict", strict)}));
    const std::string request = call(R"("method":"strict","params":{"port":"x"})");
    const std::string offset = std::to_string(request.find("\"x\""));
    EXPECT_EQ(serve(request),
              error(-32602, R"("Bad paramters for method","specific_err":"error at offset: )" + offset +
                                R"( - 'port' is 'string', expecting 'uint32'")") +
                  "\n");
}

TEST(ReqParser, ACommonErrorIsAlwaysAnswered) {
    std::string text;
    ReqParser::generate_common_error(text, "busy 100%");
    EXPECT_EQ(text, error(-32603, "\"busy 100%\"", "null") + "\n");
}

TEST(ReqParser, DebugTextIsIndentedWhereItIsJson) {
    const std::string deep(5000, '[');
    const std::string json = "{\"a\":1}";
    const std::string broken = "{%s";
    EXPECT_EQ(ReqParser::pretty_json_str(json), "{\n   \"a\" : 1\n}\n");
    EXPECT_EQ(ReqParser::pretty_json_str(broken), broken);
    EXPECT_EQ(ReqParser::pretty_json_str(deep), deep);
}

TEST(Json, ATextThatFailsToParseLeavesTheValueAlone) {
    Json::Value value("kept");
    std::string message;
    EXPECT_FALSE(json::parse("[1,", value, &message));
    EXPECT_FALSE(message.empty());
    EXPECT_FALSE(json::parse(std::string(2000, '['), value));
    EXPECT_EQ(value, "kept");
    EXPECT_TRUE(json::parse("  [1]", value));
    EXPECT_EQ(value[0].getOffsetStart(), 3);
}

}  // namespace
}  // namespace corvo
