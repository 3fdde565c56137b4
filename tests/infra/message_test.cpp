// Containers that libraries unpack, and messages that they take apart.
#include <gtest/gtest.h>

#include <cstring>

#include "infra/corvo_zip.h"
#include "infra/json/corvo_jsonrpc_msg.h"

namespace corvo {
namespace {

/** The result and what was unpacked. */
std::pair<int, std::string> unzip(const std::string& in) {
    char* out = nullptr;
    const int len = corvo_zip_unzip(in.data(), static_cast<unsigned>(in.size()), &out);
    std::string text = out ? std::string(out, static_cast<size_t>(len)) : "";
    corvo_zip_destroy(out);
    return {len, text};
}

std::string zip(const std::string& in) {
    std::string out;
    const int size = corvo_zip_zip(in, out, true);
    EXPECT_EQ(size, static_cast<int>(out.size()));
    return out;
}

TEST(Zip, AHeaderMakesAContainerOfTheRawForm) {
    const std::string text(5000, 'x');
    const std::string container = zip(text);
    std::string raw;
    EXPECT_GT(corvo_zip_zip(text, raw, false), 0);
    EXPECT_EQ(container.substr(8), raw);
    EXPECT_EQ(container.substr(0, 4), "\xA2\x27\xA8\xAB");
    EXPECT_TRUE(corvo_zip_is_zipped(container.data(), 8));
    EXPECT_FALSE(corvo_zip_is_zipped(container.data(), 7));
    EXPECT_FALSE(corvo_zip_is_zipped("{\"a\":1}   ", 10));
}

TEST(Zip, ADamagedContainerIsRefused) {
    const std::string good = zip(std::string(5000, 'x') + "end");
    const auto with_len = [&](uint32_t len) {
        std::string changed = good;
        std::memcpy(changed.data() + 4, &len, sizeof len);
        return changed;
    };
    for (uint32_t len : {5002u, 5004u, 0u, (64u << 20) + 1, UINT32_MAX})
        EXPECT_EQ(unzip(with_len(len)), std::make_pair(-22, std::string())) << len;
    for (const std::string& bad :
         {good.substr(0, good.size() - 1), good.substr(0, 8), good + "x", std::string()})
        EXPECT_EQ(unzip(bad), std::make_pair(-22, std::string())) << bad.size();
}

TEST(MsgParser, ToldByTheirMembersMessagesAreOfFiveKinds) {
    std::string zipped;
    ASSERT_GT(corvo_zip_zip(R"({"jsonrpc":"2.0","id":1,"result":5})", zipped, true), 0);
    std::string zipped_nothing;
    ASSERT_GT(corvo_zip_zip("", zipped_nothing, true), 0);
    using M = MsgParser;
    const std::tuple<std::string, M::kind_e, std::string> cases[] = {
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
    for (const auto& [text, kind, error] : cases) {
        EXPECT_EQ(MsgParser(text).kind(), kind) << text;
        EXPECT_EQ(MsgParser(text).error(), error) << text;
    }
    EXPECT_EQ(MsgParser(zipped).root()["result"], 5);
}

}  // namespace
}  // namespace corvo
