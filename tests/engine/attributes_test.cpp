#include "attributes.h"

#include <gtest/gtest.h>

namespace corvo::engine {
namespace {

TEST(CleanText, LeavesNothingInThatAReaderCannotTake) {
    const struct {
        std::string from;
        std::string to;
    } cases[] = {
        {"", ""},
        {"plain text~", "plain text~"},
        {"caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80", "caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80"},
        {std::string("a\0b\r\n\x1b\x7f", 7), "a?b????"},
        {"\xc2\x85", "?"},                    // a control character of two bytes
        {"\xff\x80 \xc3(", "?? ?("},          // no UTF-8
        {"\xe2\x82", "??"},                   // cut in the middle
        {"\xc0\xaf \xe0\x80\xaf", "?? ???"},  // more bytes than needed
        {"\xed\xa0\x80", "???"},              // a surrogate
        {"\xf4\x90\x80\x80", "????"},         // beyond the last code point
    };
    for (const auto& c : cases) {
        std::string out = "x=";
        append_clean(c.from, out);
        EXPECT_EQ(out, "x=" + c.to);
    }
}

TEST(CleanText, CutsALongTextBetweenCharacters) {
    std::string out;
    append_clean(std::string(255, 'a') + "\xc3\xa9", out);
    EXPECT_EQ(out, std::string(255, 'a'));
}

}  // namespace
}  // namespace corvo::engine
