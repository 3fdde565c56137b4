#include <gtest/gtest.h>

#include <cstdlib>

#include "utils/optparse/option_parser.h"
#include "utils/optparse/text.h"

namespace optparse {
namespace {

using Words = std::vector<std::string>;

class OptionParserTest : public testing::Test {
 protected:
    OptionParserTest() {
        parser.set_prog("prog");
        for (const char* flag : {"-a", "-b", "-c", "--wd_reload", "--wd_disable"})
            parser.add_option(flag).action("store_true");
        parser.add_option("-o", "--out-file").help("where to");
        parser.add_option("-n", "--number").type("int").set_default(0).help("a number (%default)");
        parser.add_option("--level").choices({"low", "high"}).help("%choices");
        parser.add_option("--pair").action("append").value_count(2);
        parser.add_option("--each").action("append");
        parser.add_option("-v").action("count");
        parser.add_option("--ratio").type("double");
        parser.add_option("--point").type("complex");
        parser.add_option("--const").action("append_const").const_text("fixed");
    }

    OptionParser parser;
};

TEST_F(OptionParserTest, UnderstandsEachWayToWriteAnOption) {
    const std::tuple<Words, const char*, const char*> cases[] = {
        {{"-ovalue"}, "out_file", "value"},
        {{"-o", "-a"}, "out_file", "-a"},
        {{"--out-file=a=b"}, "out_file", "a=b"},
        {{"--out-file", "--"}, "out_file", "--"},
        {{"--out", "x"}, "out_file", "x"},
        {{"-abc"}, "c", "1"},
        {{"-aovalue"}, "out_file", "value"},
        {{"--wd_rel"}, "wd_reload", "1"},
        {{"--wd_reload=x"}, "wd_reload", "1"},
        {{"-vv", "-v"}, "v", "3"},
        {{"--number", "-12 mice"}, "number", "-12 mice"},
        {{"--ratio", "1e3"}, "ratio", "1e3"},
        {{"--point", "(1,2)"}, "point", "(1,2)"},
        {{"--const"}, "const", "fixed"},
        {{"--level=high"}, "level", "high"},
    };
    for (const auto& [args, key, value] : cases) {
        const Values& values = parser.parse_args(args);
        EXPECT_EQ(values[key], value) << args[0];
        EXPECT_TRUE(values.is_set_by_user(key)) << args[0];
    }
}

TEST_F(OptionParserTest, RefusesAWrongCommandLineWithUsageAndStatusTwo) {
    const std::pair<Words, std::string> cases[] = {
        {{"-x"}, "no such option: -x"},
        {{"-ax"}, "no such option: -x"},
        {{"--%s"}, "no such option: --%s"},
        {{"--wd"}, "ambiguous option: --wd \\(--wd_disable, --wd_reload\\?\\)"},
        {{"-o"}, "-o option requires an argument"},
        {{"--out"}, "--out option requires an argument"},
        {{"--out-file="}, "--out-file option requires an argument"},
        {{"--pair", "1"}, "--pair not enough arguments"},
        {{"--pair=1", "2"}, "--pair not enough arguments"},
        {{"-nten"}, "option -n: invalid integer value: 'ten'"},
        {{"-n99999999999999999999"}, "option -n: invalid integer value: '99999999999999999999'"},
        {{"--ratio", "x"}, "option --ratio: invalid floating-point value: 'x'"},
        {{"--point", "x"}, "option --point: invalid complex value: 'x'"},
        {{"--level=%n"}, "option --level: invalid choice: '%n' \\(choose from 'low', 'high'\\)"},
    };
    for (const auto& [args, message] : cases)
        EXPECT_EXIT(parser.parse_args(args), testing::ExitedWithCode(2),
                    "^Usage: prog \\[options\\]\nprog: error: " + message + "\n$");
}

TEST_F(OptionParserTest, KeepsTheOtherWords) {
    parser.parse_args(Words{"one", "-a", "-", "--", "-b", "--x"});
    EXPECT_EQ(parser.leftover(), (Words{"one", "-", "-b", "--x"}));
    EXPECT_FALSE(parser.values().is_set_by_user("b"));

    parser.set_mixed_args(false).parse_args(Words{"-a", "one", "-b"});
    EXPECT_EQ(parser.leftover(), (Words{"one", "-b"}));
}

TEST_F(OptionParserTest, ADefaultIsAValueThatNobodyGave) {
    parser.set_default("ratio", "0.5").set_default("no option", "x");
    const Values& values =
        parser.parse_args(Words{"--level=low", "--each=1", "--pair", "2", "3", "--each", "4"});
    EXPECT_EQ(values["number"], "0");
    EXPECT_TRUE(values.get("number").valid());
    EXPECT_FALSE(values.is_set_by_user("number"));
    EXPECT_EQ(double(values.get("ratio")), 0.5);
    EXPECT_EQ(values["no option"], "x");
    EXPECT_FALSE(values.get("a").valid());
    EXPECT_EQ(int(values.get("level")), 0);
    EXPECT_EQ(values.all("each"), (Words{"1", "4"}));
    EXPECT_EQ(values.all("pair"), (Words{"2", "3"}));
    EXPECT_TRUE(values.all("number").empty());
}

TEST(OptionParser, HelpIsLaidOutInTwoColumns) {
    setenv("COLUMNS", "40", 1);
    OptionParser parser;
    parser.set_prog("prog")
        .set_usage("usage: %prog [options] FILE")
        .set_version("1")
        .set_closing_text("The end.");
    parser.description("What it is for");
    parser.add_option("-n").type("int").set_default(7).help("count (%default)\nsecond line");
    parser.add_option("-l", "--level", "--depth").choices({"low", "high"}).value_label("L").help("%choices");
    parser.add_option("--secret").action("store_true").help(SUPPRESS_HELP);
    OptionGroup group(parser, "Rarely used", "Ask before you use these");
    group.add_option("-x").action("store_true").help("words enough to need a second line for them all");
    parser.add_option_group(group);

    EXPECT_TRUE(parser.parse_args(Words{"-x"}).is_set_by_user("x"));
    EXPECT_EQ(parser.format_help(),
              "Usage: prog [options] FILE\n"
              "\n"
              "What it is for\n"
              "\n"
              "Options:\n"
              "  --version\n"
              "            show program's version\n"
              "            number and exit\n"
              "  -h, --help\n"
              "            show this help message and exit\n"  // a last word stays on its line
              "  -n INT    count (7)\n"
              "            second line\n"
              "  -l L, --depth=L, --level=L\n"
              "            low|high\n"
              "\n"
              "  Rarely used:\n"
              "    Ask before you use these\n"
              "\n"
              "    -x      words enough to need a\n"
              "            second line for them all\n"
              "\n"
              "The end.\n");
    parser.set_usage(SUPPRESS_USAGE);
    EXPECT_EQ(parser.get_usage(), "");
    EXPECT_TRUE(parser.format_help().starts_with("What it is for"));
}

TEST(OptparseText, WidthComesFromTheEnvironment) {
    unsetenv("COLUMNS");
    EXPECT_EQ(cols(), 160u);
    for (auto [columns, width] : {std::pair{"40", 40u}, {"", 160}, {"wide", 160}, {"0", 160}, {"-5", 160}}) {
        setenv("COLUMNS", columns, 1);
        EXPECT_EQ(cols(), width) << columns;
    }
}

TEST(OptparseText, WrapsWordsAndKeepsThemWhole) {
    EXPECT_EQ(str_format("one two three four", 0, 8), "one two\nthree four\n");
    EXPECT_EQ(str_format("one two three four five", 2, 10, true, false), "one two\n  three\n  four five\n");
    EXPECT_EQ(str_format("immeasurable is one", 0, 4), "immeasurable\nis one\n");
    EXPECT_EQ(str_format("one\ntwo", 1, 80), " one two\n");
    EXPECT_EQ(str_format("one\n\ntwo", 1, 80, false), " one\n \n two\n");
    EXPECT_EQ(str_format("", 1, 80), " \n");
}

}  // namespace
}  // namespace optparse
