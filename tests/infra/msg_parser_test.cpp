#include "infra/corvo_jsonrpc_msg.h"

#include <gtest/gtest.h>

#include "infra/corvo_zip.h"

namespace corvo {
namespace {

TEST(MsgParser, ToldByTheirMembersMessagesAreOfFiveKinds) {
    std::string zipped;
    ASSERT_GT(corvo_zip_zip(R"({"jsonrpc":"2.0","id":1,"result":5})", zipped, true), 0);
    std::string zipped_nothing;
    ASSERT_GT(corvo_zip_zip("", zipped_nothing, true), 0);
    using M = MsgParser;
    const struct {
        std::string text;
        M::kind_e kind;
        std::string error;
    } cases[] = {
        {R"({"jsonrpc":"2.0","method":"m"})", M::KIND_REQUEST, ""},
        {R"({"jsonrpc":"2.0","id":"a","result":null})", M::KIND_RESPONSE_OK, ""},
        {R"({"jsonrpc":"2.0","id":1,"error":null})", M::KIND_RESPONSE_OK, ""},
        {zipped, M::KIND_RESPONSE_OK, ""},
        {R"({"jsonrpc":"2.0","id":null,"error":{"message":"m"}})", M::KIND_RESPONSE_ERROR, "m"},
        {R"({"jsonrpc":"2.0","error":{"message":"m","specific_err":"s"}})", M::KIND_RESPONSE_ERROR, "s"},
        {R"({"jsonrpc":"2.0","error":{"specific_err":{"a":[]}}})", M::KIND_RESPONSE_ERROR, R"({"a":[]})"},
        {R"({"jsonrpc":"2.0","error":"plain"})", M::KIND_RESPONSE_ERROR, "plain"},
        {R"({"jsonrpc":"2.0","id":1})", M::KIND_INVALID, ""},
        {R"({"jsonrpc":"2.0","id":1.5,"method":"m"})", M::KIND_INVALID, ""},
        {R"({"jsonrpc":"1.0","id":1,"method":"m"})", M::KIND_INVALID, ""},
        {"[]", M::KIND_INVALID, ""},
        {"{", M::KIND_INVALID, ""},
        {std::string(5000, '['), M::KIND_INVALID, ""},
        {zipped.substr(0, 10), M::KIND_UNZIP_FAILED, ""},
        {zipped_nothing, M::KIND_UNZIP_FAILED, ""},
    };
    for (const auto& c : cases) {
        const MsgParser parser(c.text);
        EXPECT_EQ(parser.kind(), c.kind) << c.text;
        EXPECT_EQ(parser.error(), c.error) << c.text;
    }
    EXPECT_EQ(MsgParser(zipped).root()["result"], 5);
}

}  // namespace
}  // namespace corvo
