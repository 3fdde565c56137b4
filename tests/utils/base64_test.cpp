#include "utils/base64.h"

#include <gtest/gtest.h>

namespace {

TEST(Base64, TextsAndBytesCorrespond) {
    const std::pair<std::string, std::string> cases[] = {
        {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"\xFB\xFF\xBF", "+/+/"}};
    for (const auto& [bytes, text] : cases) {
        EXPECT_EQ(b64_encode(bytes), text);
        EXPECT_EQ(b64_decode(text), bytes);
    }
}

TEST(Base64, DecodingStopsAtTheFirstForeignCharacter) {
    const std::pair<std::string, std::string> cases[] = {
        {"Zm9v\nZm9v", "foo"}, {"Zm8=Zm9v", "fo"},
        {"Zm9vZ", "foo"},      {"=", ""},
        {"Zm9v\xE9", "foo"},   {std::string("Zm9v\0Zm9v", 9), "foo"}};
    for (const auto& [text, bytes] : cases)
        EXPECT_EQ(b64_decode(text), bytes) << text;
}

}  // namespace
