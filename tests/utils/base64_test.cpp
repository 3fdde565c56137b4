#include "utils/base64.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

TEST(Base64, TextsAndBytesCorrespond) {
    std::string all;
    for (int i = 0; i < 256; ++i)
        all += static_cast<char>(i);
    const std::pair<std::string, std::string> cases[] = {
        {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"\xFB\xFF\xBF", "+/+/"}};
    for (const auto& [bytes, text] : cases) {
        EXPECT_EQ(b64_encode(bytes), text);
        EXPECT_EQ(b64_decode(text), bytes);
    }
    EXPECT_EQ(b64_decode(b64_encode(all)), all);
}

TEST(Base64, DecodingStopsAtTheFirstForeignCharacter) {
    const std::pair<std::string, std::string> cases[] = {
        {"Zm9v\nZm9v", "foo"}, {"Zm8=Zm9v", "fo"},
        {"Zm9vZ", "foo"},      {"=", ""},
        {"Zm9v\xE9", "foo"},   {std::string("Zm9v\0Zm9v", 9), "foo"}};
    for (const auto& [text, bytes] : cases)
        EXPECT_EQ(b64_decode(text), bytes) << text;
}

TEST(Base64, BuffersOfTheStatedSizesSuffice) {
    for (int len = 0; len < 9; ++len) {
        const std::string bytes(static_cast<size_t>(len), '\x9a');
        std::vector<char> text(static_cast<size_t>(b64_elen(len)));
        EXPECT_EQ(b64_encode(text.data(), bytes.data(), len), b64_elen(len));
        EXPECT_EQ(text.back(), '\0');
        std::vector<char> back(static_cast<size_t>(b64_dlen(text.data())), 'x');
        EXPECT_EQ(b64_decode(back.data(), text.data()), len);
        EXPECT_EQ(std::string(back.data()), bytes) << "up to the NUL";
    }
}

}  // namespace
