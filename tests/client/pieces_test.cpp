// What the program is made of, apart from daemon and terminal.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <sstream>

#include "client/check/daemon_user.h"
#include "client/classify/pace.h"
#include "client/classify/piece.h"
#include "client/classify/tally.h"
#include "client/failure.h"
#include "client/program.h"
#include "client/shell/split.h"
#include "client/text/method_table.h"
#include "client/text/render.h"
#include "client/text/wrap.h"
#include "client/wire/address.h"
#include "client/wire/daemon_log.h"
#include "client/wire/file_reader.h"
#include "client/words/completion.h"
#include "client/words/examples.h"
#include "client/words/help.h"
#include "client/words/line_complaints.h"
#include "client/words/views.h"
#include "support/client.h"
#include "support/temp_dir.h"
#include "tools/captures/frame_builder.h"

namespace brumectl {
namespace {

using test::parse;
using testing::Each;
using testing::HasSubstr;
using testing::Not;

TEST(Address, WhatListensIsAPortAFileOrUnclear) {
    const auto parsed = [](Address (*parse)(const std::string&), const char* text) -> std::string {
        try {
            const Address address = parse(text);
            char host[64];
            char port[16];
            if (!address.tcp) return address.path;
            getnameinfo(address.ip_address(), address.ip_size(), host, sizeof(host), port, sizeof(port),
                        NI_NUMERICHOST | NI_NUMERICSERV);
            return std::string(host) + " " + port + (address.is_local() ? "" : " elsewhere");
        } catch (const Usage& e) {
            return e.what();
        }
    };
    const std::tuple<const char*, const char*, const char*> CASES[] = {
        {"192.0.2.1:4040", "192.0.2.1 4040 elsewhere", "192.0.2.1 4040 elsewhere"},
        {"localhost:4040", "127.0.0.1 4040", "127.0.0.1 4040"},
        {"[::1]:4040", "::1 4040", "::1 4040"},
        {":4040", "127.0.0.1 4040", "0.0.0.0 4040 elsewhere"},
        {"./router:4040", "./router:4040", "'./router:4040' is neither IP:PORT"},
        {"a:b", "a:b", "'a:b' is neither IP:PORT"},
        {"", "the daemon's address is empty", "'' is neither IP:PORT"},
        {"router:4040", "'router:4040' is neither IP:PORT", "'router:4040' is neither IP:PORT"},
        {"::1:4040", "a file of that name is ./::1:4040", "is neither IP:PORT"},
        {"localhost", "'localhost' is neither IP:PORT", "'localhost' is neither IP:PORT"},
        {"[::1]", "'[::1]' is neither IP:PORT", "'[::1]' is neither IP:PORT"},
        {":0", "':0' has no port from 1 to 65535", "':0' has no port from 1 to 65535"},
    };
    for (const auto& [text, to_ask, to_listen] : CASES) {
        EXPECT_THAT(parsed(Address::parse, text), HasSubstr(to_ask)) << text;
        EXPECT_THAT(parsed(Address::parse_listening, text), HasSubstr(to_listen)) << text;
    }
    EXPECT_EQ(parsed(Address::of_path, "127.0.0.1:1"), "127.0.0.1:1");
}

TEST(LogFollow, NewLinesAreFoundBehindThoseThatWereSeen) {
    constexpr size_t NONE = std::string::npos;
    EXPECT_EQ(first_new_line({"a", "b"}, {"a", "b", "c"}), 2U);
    EXPECT_EQ(first_new_line({"a", "b"}, {"a", "b"}), 2U);
    EXPECT_EQ(first_new_line({"a", "b", "b"}, {"b", "b", "b", "c"}), 2U) << "or 3: one b more isn't sure";
    EXPECT_EQ(first_new_line({"a", "b"}, {"c", "d"}), NONE);
    EXPECT_EQ(first_new_line({"a", "b"}, {}), NONE);
    EXPECT_EQ(first_new_line({}, {"c"}), 0U);
}

TEST(Views, NoResultWhateverItsShapeStopsAView) {
    const Terminal terminal(tmpfile());
    const char* const RESULTS[] = {
        "null",
        "5",
        "[]",
        "[[1],{\"a\":2}]",
        "\"\\u001b[2J\"",
        "{\"log\":[5,\"\\u001b\"]}",
        "{\"pkts\":[5,{\"tph\":7},{\"tph\":[\"\\u001b\"],\"src\":\"\\u001b\"}]}",
        "{\"total\":0,\"\\u001b\":\"\\u001b\"}",
        "{\"state\":\"\\u001b\",\"mem\":5,\"version\":{\"\\u001b\":\"\\u001b\"}}",
        "{\"events\":[1,{\"engine\":2,\"backtrace\":{}},{\"backtrace\":\"\\u001b\"}]}",
        "{\"notif\":{\"log\":[1,{\"ts\":-1,\"sev\":[]},{\"sev\":\"\\u001b\",\"desc\":\"\\u001b\"}]}}",
        "{\"notif\":{\"alerts\":[1,{\"name\":\"\\u001b\"}]}}"};
    std::vector<std::string> methods = MethodTable::get().names();
    methods.push_back("engine.own");
    for (const std::string& method : methods)
        for (const char* result : RESULTS) {
            std::string text = view(terminal, method, parse(result));
            EXPECT_FALSE(text.empty()) << method << " " << result;
            EXPECT_EQ(text.find('\x1b'), std::string::npos) << method << " " << result;
        }
}

TEST(Views, AStallIsShownWithItsTimeAndItsStack) {
    const Json::Value hogs = parse(
        R"({"events":[{"type":"hog","version":" 1 ","process":{"pid":7},"backtrace":)"
        R"("-HOG DETECTED:\ntime: 1700000000\nbacktrace: \n./brumecpd(_ZN5corvo4stopEi+0x1c)[0x55]\n"}]})");
    const std::string text = view(Terminal(tmpfile()), "events", hogs);
    EXPECT_EQ(text, "time      " + time_text(1700000000) +
                        "\nversion   1\nprocess   7\n\n#0   corvo::stop(int)+0x1c  brumecpd\n");
}

TEST(Render, ObjectsAreLinesArraysOfThemTablesAndUnitsComeFromTheSchema) {
    const Json::Value schema = parse(
        R"({"oneOf":[{"type":"array"},{"properties":{"t":{"description":"seconds since start"},
            "rows":{"items":{"properties":{"len":{"description":"bytes"}}}}}}]})");
    EXPECT_EQ(render(Terminal(tmpfile()),
                     parse(R"({"t":61,"name":"x","rows":[{"len":2048,"p":"a"},{"p":"b"}]})"), &schema),
              "name:  x\n"
              "rows:\n"
              "      len  p\n"
              "  2.0 KiB  a\n"
              "           b\n"
              "t:  00:01:01\n");
}

TEST(Render, AWideTextCostsOtherLinesNoBlanks) {
    Json::Value result;
    for (const char* row : {"wide", "narrow"})
        result["rows"].append(Json::objectValue)["a"] = row;
    result["rows"][0]["a"] = result[std::string(100000, 'k')] = std::string(100000, 'w');
    result["rows"][0]["b"] = result["rows"][1]["b"] = result["n"] = 1;
    EXPECT_LT(render(Terminal(tmpfile()), result, nullptr).size(), 301000U);
}

TEST(Terminal, WhatATerminalObeysOrDoesntShowIsEscaped) {
    const std::pair<const char*, const char*> CASES[] = {
        {"\xc2\x9b", R"(\xc2\x9b)"},
        {"\u202e\u2066\u200b\ufeff", R"(\xe2\x80\xae\xe2\x81\xa6\xe2\x80\x8b\xef\xbb\xbf)"},
        {"\u202a\u2069\u200f\u00a0", "\\xe2\\x80\\xaa\\xe2\\x81\\xa9\\xe2\\x80\\x8f\u00a0"},
        {"\U000e0041\u061c", R"(\xf3\xa0\x81\x81\xd8\x9c)"},
        {"\u200a\u2010\u2027\u00e9\U0001f600", "\u200a\u2010\u2027\u00e9\U0001f600"},
    };
    for (const auto& [text, shown] : CASES)
        EXPECT_EQ(harmless(text), shown);
}

TEST(WhoReads, WhatTheModesLetThemAndNothingBelowAClosedFolder) {
    const test::TempDir dir;
    const std::string file = dir.write("file", "");
    const uid_t us = geteuid(), other = us + 1;
    const gid_t group = getegid(), other_group = group + 1;
    const struct {
        mode_t folder, file;
        uid_t user;
        std::vector<gid_t> groups;
        const char* hindrance;
    } CASES[] = {
        {0700, 0400, us, {other_group}, ""},
        {0700, 0044, us, {group}, "can't read "},
        {0701, 0604, other, {other_group}, ""},
        {0755, 0604, other, {other_group, group}, "can't read "},
        {0710, 0640, other, {other_group, group}, ""},
        {0701, 0640, other, {other_group}, "can't read "},
        {0750, 0644, other, {other_group}, "can't enter "},
    };
    for (const auto& c : CASES) {
        ASSERT_EQ(chmod(file.c_str(), c.file) + chmod(dir.path().c_str(), c.folder), 0);
        const FileReader reader{c.user, c.groups};
        EXPECT_EQ(reader.may_open(file), *c.hindrance == '\0') << std::oct << c.folder << " " << c.file;
        const std::string found = check::hindrance(reader, file);
        EXPECT_EQ(found.substr(0, found.find('/')), c.hindrance) << found;
    }
    const FileReader capable{other, {other_group}, true};
    EXPECT_TRUE(capable.may_open(file));
    EXPECT_FALSE(FileReader::everybody().may_open(file));
    chmod(dir.path().c_str(), 0711);
    EXPECT_TRUE(FileReader::everybody().may_open(file));

    EXPECT_FALSE(FileReader::of_process(getpid()));
    prctl(PR_SET_NAME, "brumecpd");
    EXPECT_EQ(FileReader::of_process(getpid())->user, geteuid());
    chmod(file.c_str(), 0);
    EXPECT_EQ(FileReader::of_process(getpid())->passes_modes, access(file.c_str(), R_OK) == 0);
}

TEST(Piece, AnswersFindTheirFramesAndStraysAreCounted) {
    using namespace test;
    const Path path{.from = "10.0.0.1", .to = "10.0.0.2", .from_port = 1000, .to_port = 53};
    Piece piece;
    for (const Bytes& bytes :
         {udp_frame(path, from_text("one")), udp_frame(path.reversed(), from_text("two2")),
          ether_frame(ETHER_ARP, ByteWriter().fill(46))})
        piece.add(bytes.data(), static_cast<uint32_t>(bytes.size()));
    const Json::Value answers = parse(R"([{"src":"9.9.9.9:1","dst":"10.0.0.1:1000","len":46}, 5,
        {"src":"10.0.0.2:53","dst":"10.0.0.1:1000","len":46}])");
    EXPECT_EQ(piece.align(answers), 2U);
    EXPECT_EQ(piece.frames()[0].answer, nullptr);
    EXPECT_EQ(piece.frames()[1].answer, &answers[2]);
    EXPECT_FALSE(piece.frames()[2].is_ip);
}

TEST(Course, StepsGrowWithTheTimeAndNoTimeIsTooFar) {
    Course course;
    course.add("A", 1000, 1);
    course.add("A", 1191, 2);
    EXPECT_EQ(course.steps(), 192U);
    course.add("A", 1192, 4);
    EXPECT_EQ(course.step_usec(), 2U);
    EXPECT_EQ(course.protocols().at("A")[95], 2U);
    EXPECT_EQ(course.protocols().at("A")[96], 4U);
    course.add("A", 0, 8);
    course.add("A", UINT64_MAX, 16);
    EXPECT_EQ(course.protocols().at("A")[0], 15U);
    EXPECT_EQ(course.protocols().at("A")[course.steps() - 1], 16U);
}

TEST(Pace, PiecesGrowByTwiceAtMostAndShrinkAtOnce) {
    Pace pace(1000, 20000);
    pace.took(1000, 0.5);
    EXPECT_EQ(pace.frames(), 2000U);
    pace.took(2000, 80);
    EXPECT_EQ(pace.frames(), 200U);
    pace.took(200, 1e9);
    EXPECT_EQ(pace.frames(), Pace::LEAST);
}

/** Every word with its name as `help` takes it; the whole program comes first. */
std::vector<std::pair<std::string, const CLI::App*>> all_words(const CLI::App& app,
                                                               const std::string& path = "") {
    std::vector<std::pair<std::string, const CLI::App*>> found{{path, &app}};
    for (const CLI::App* word : words_of(app)) {
        const auto inner = all_words(*word, path + (path.empty() ? "" : " ") + word->get_name());
        found.insert(found.end(), inner.begin(), inner.end());
    }
    return found;
}

TEST(Help, EachWordHasTwoExamplesThatCanBeTyped) {
    const Program words;
    for (const auto& [path, word] : all_words(words.app())) {
        const std::vector<Example> examples = examples_of(path);
        EXPECT_EQ(examples.size(), 2U) << path;
        for (const Example& example : examples) {
            Program program;
            struct Understood {};  // before anything is done
            const_cast<CLI::App&>(program.app()).parse_complete_callback([] { throw Understood(); });
            EXPECT_THROW(program.run(split_words(example.line)), Understood) << example.line;
            const std::string named = typed_name(innermost(program.app()), true);
            EXPECT_EQ(named.rfind(path, 0), 0U) << example.line;
        }
    }
}

TEST(Help, ItFitsTheTerminalInPlainSignsAndTellsOfEachOptionMoreThanItsName) {
    // Nobody has chosen a locale here: it is "C".
    constexpr size_t WIDTH = 50;
    const Program program;
    for (const auto& [path, word] : all_words(program.app())) {
        std::istringstream lines(help_text(*word, {WIDTH, false}));
        for (std::string line; std::getline(lines, line);) {
            const size_t words = split_unfinished(line.substr(0, line.find('\''))).size();
            EXPECT_TRUE(line.size() <= WIDTH || line.rfind("  brumectl ", 0) == 0 || words < 4) << line;
            EXPECT_THAT(line, Each(testing::AllOf(Not('`'), testing::Ge(' '), testing::Lt('\x7f')))) << path;
        }
        for (const CLI::Option* option : word->get_options()) {
            const std::string text = option->get_description();
            EXPECT_TRUE(text.size() > 6 && text != option->get_single_name())
                << path << ": " << option->get_name();
        }
    }
}

TEST(Help, EntriesHangAndParagraphsFlow) {
    EXPECT_EQ(
        reflowed("One two three four,\nfive.\n\n  term  what it\n        is\n  other  more of it\n", 16),
        "One two three\nfour, five.\n\n  term  what it\n        is\n  other  more of\n         it\n");
}

}  // namespace
}  // namespace brumectl
