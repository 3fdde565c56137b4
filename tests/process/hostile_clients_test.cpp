// What clients can do wrong, to the real daemon, over both transports: each gets its exact answer, and the
// daemon is the same afterwards.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "infra/corvo_version.h"
#include "support/daemon.h"

namespace test {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr char PARSE_ERROR[] = R"({"error":{"code":-32700,"message":"Bad JSON Format: )";
constexpr char NULL_REPLY[] = "null\n";

TEST(HostileClients, GetTheExactAnswerToEveryKindOfNonsense) {
    const std::string deep(50000, '[');
    const std::string invalid_utf8 = "{\"jsonrpc\":\"2.0\",\"id\":\"\xff\xfe\",\"method\":\"ping\"}";
    const struct {
        std::string request;
        std::string reply_start;
    } cases[] = {
        {"garbage", PARSE_ERROR},
        {deep, PARSE_ERROR},
        {R"({"jsonrpc":"2.0","id":1,"method":"echo","params":{"message":)" + deep, PARSE_ERROR},
        {"null", NULL_REPLY},
        {R"({"jsonrpc":"2.0","method":"ping"})", NULL_REPLY},
        {R"({"jsonrpc":"2.0","id":1,"method":"%s%n%s"})",
         R"({"error":{"code":-32601,"message":"Method '%s%n%s' not registered"},"id":1,)"},
        {invalid_utf8, R"({"fmt":{"size":)"},
    };
    for (bool tcp : {false, true}) {
        Daemon daemon({.tcp = tcp});
        for (const auto& c : cases) {
            SCOPED_TRACE((tcp ? "TCP " : "Unix ") + c.request.substr(0, 60));
            EXPECT_THAT(daemon.raw(c.request), StartsWith(c.reply_start));
        }
        EXPECT_TRUE(daemon.result("ping").isMember("ts"));
        EXPECT_EQ(daemon.stop(), 0);
    }
}

TEST(HostileClients, ParametersOfAWrongShapeAreRefusedByEveryMethodThatReadsThem) {
    Daemon daemon;
    const std::vector<const char*> reading = {"load",    "activate", "push_pcap", "coffee",       "log",
                                              "collect", "health",   "events",    "notifications"};
    for (const char* method : reading)
        for (const char* params : {"5", "\"text\"", "[1,2]", "true", "1.5"}) {
            const Json::Value reply = parse(daemon.raw(std::string(R"({"jsonrpc":"2.0","id":1,"method":")") +
                                                       method + R"(","params":)" + params + "}"));
            EXPECT_EQ(reply["error"]["code"], -32000) << method << params << reply;
            EXPECT_EQ(reply["error"]["specific_err"], "internal parsing error") << method << params << reply;
        }
    for (const char* method : {"ping", "cmds", "status", "unload", "deactivate"})
        EXPECT_TRUE(daemon.call(method, Json::Value(5)).isMember("result")) << method;
    EXPECT_EQ(daemon.failure("attach", Json::Value(5)), corvo::Version::g_in_slave_mode
                                                            ? "'attach' not supported in slave mode"
                                                            : "internal parsing error");
    EXPECT_EQ(daemon.failure("mt", Json::Value(5)), "Mem tracing is not built into this image");
}

TEST(HostileClients, OversizedDatagramsAreAnsweredAndOversizedLinesServed) {
    {
        Daemon daemon;
        const std::string tail = R"({"jsonrpc":"2.0","id":1,"method":"ping"})";
        EXPECT_THAT(daemon.raw(std::string(60000 - tail.size(), ' ') + tail),
                    HasSubstr(R"("result":{"ts":)"));
        EXPECT_EQ(
            daemon.raw(std::string(60001 - tail.size(), ' ') + tail),
            R"({"error":{"code":-32603,"message":"request size exceeds the maximum allowed size: 60000 [B]"},)"
            R"("id":null,"jsonrpc":"2.0"})"
            "\n");
    }
    Daemon daemon({.tcp = true});
    const std::string message(1000000, 'x');
    const Json::Value reply =
        parse(daemon.raw(R"({"jsonrpc":"2.0","id":")" + message + R"(","method":"ping"})"));
    EXPECT_EQ(reply["id"].asString().size(), message.size());
}

}  // namespace
}  // namespace test
