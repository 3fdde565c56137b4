// What the program is made of, apart from daemon and terminal.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netdb.h>

#include "client/failure.h"
#include "client/program.h"
#include "client/shell/split.h"
#include "client/text/fields.h"
#include "client/text/render.h"
#include "client/wire/address.h"
#include "client/wire/daemon_log.h"
#include "client/words/completion.h"
#include "client/words/views.h"
#include "infra/json/corvo_json.h"

namespace brumectl {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

using Words = std::vector<std::string>;

Json::Value parse(const std::string& text) {
    Json::Value value;
    EXPECT_TRUE(corvo::json::parse(text, value)) << text;
    return value;
}

TEST(Fields, WhatIsMissingIsImpliedWhereOnlyOneThingCanBeMeant) {
    const struct {
        const char* method;
        const char* given;
        const char* completed;  ///< or the complaint
    } CASES[] = {
        {"push_pcap", R"({"filename":"x"})", R"({"filename":"x","reset":false,"type":"filename"})"},
        {"push_pcap", R"({"buffer":"AA=="})", R"({"buffer":"AA==","reset":false,"type":"buffer"})"},
        {"push_pcap", "{}", "'type' is missing: filename, buffer"},
        {"events", "null", R"({"type":"hog"})"},
        {"activate", "null", "'resources.max_flows' is missing"},
        {"load", R"({"shm":{"type":"devmem","size":1}})", "'shm.addr' is missing"},
        {"load", R"({"shm":{"type":"auto"}})", R"({"shm":{"type":"auto"}})"},
        {"notifications", R"({"cmd":"socket","op":"add"})", "'socket' is missing"},
        {"notifications", R"({"cmd":"log"})", R"({"cmd":"log"})"},
    };
    for (const auto& c : CASES) {
        Json::Value params = parse(c.given);
        std::string got;
        try {
            complete(*MethodTable::get().find(c.method), params);
            got = corvo::json::write(params);
        } catch (const Usage& e) {
            got = e.what();
        }
        EXPECT_EQ(got, c.completed) << c.method << " " << c.given;
    }
}

TEST(Fields, ATextBecomesWhatItsParameterTakesOrIsRefused) {
    const struct {
        const char* method;
        const char* path;
        const char* text;
        const char* value;  ///< null: refused
    } CASES[] = {
        {"echo", "message", "5", R"("5")"},
        {"mt", "depth", "255", "255"},
        {"mt", "depth", "256", nullptr},
        {"mt", "depth", "-1", nullptr},
        {"mt", "depth", "5x", nullptr},
        {"collect", "interval", "18446744073709551615", "18446744073709551615"},
        {"collect", "socket.type", "file", R"("file")"},
        {"collect", "socket.type", "files", nullptr},
        {"push_pcap", "reset", "yes", nullptr},
        {"health", "json", R"({"a":[1]})", R"({"a":[1]})"},
        {"health", "json", "[1]", nullptr},
        {"health", "json", "{} 5", nullptr},
    };
    for (const auto& c : CASES) {
        const std::vector<Field> fields = fields_of(*MethodTable::get().find(c.method));
        const Field* field = find_field(fields, c.path);
        ASSERT_NE(field, nullptr) << c.path;
        if (c.value == nullptr)
            EXPECT_THROW(value_of(*field, c.text), Usage) << c.path << " " << c.text;
        else
            EXPECT_EQ(corvo::json::write(value_of(*field, c.text)), c.value);
    }
}

TEST(Fields, AValueIsJsonOnlyIfAllOfItIs) {
    for (const char* text : {"10.0.0.1", "2026-11-24", "12ab", R"("a" b)", "1//a", "{}x", "tru"})
        EXPECT_EQ(guess_value(nullptr, text), text);
    EXPECT_EQ(guess_value(nullptr, " 5 "), 5);
    EXPECT_EQ(guess_value(nullptr, R"({"a":[1]})"), parse(R"({"a":[1]})"));
}

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

TEST(Split, QuotesAndBackslashesKeepBlanksAndAnOpenOneIsRefused) {
    EXPECT_THAT(split_words(R"(a 'b "c' "d\"e\n" f\ g '' # h 'i)"),
                ElementsAre("a", "b \"c", "d\"e\\n", "f g", ""));
    EXPECT_THAT(split_words(" \t\r"), ElementsAre());
    EXPECT_THAT(split_words("a#b"), ElementsAre("a#b"));
    for (const char* line : {"'a", "\"a", "a\\"})
        EXPECT_THROW(split_words(line), Usage) << line;
    EXPECT_THAT(split_unfinished("log "), ElementsAre("log", ""));
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
    Words methods = MethodTable::get().names();
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

TEST(Completion, WhatCanStandNextIsKnownWhereverItStands) {
    const Program program;
    const struct {
        Words before;
        const char* prefix;
        const char* found;  ///< "FILES" where a file's name may stand
    } CASES[] = {
        {{}, "sta", "status"},
        {{}, "man", ""},
        {{"--timeout", "5"}, "ech", "echo"},
        {{"--timeout=5"}, "ech", "echo"},
        {{"--timeout"}, "", ""},
        {{"log", "--level"}, "w", "warn"},
        {{"log"}, "--level=w", "--level=warn"},
        {{"log", "--"}, "--level=w", ""},
        {{"collect"}, "s", "set_exporter set_interval show"},
        {{"collect", "ls", "x"}, "", ""},
        {{"activate"}, "--max", "--max_flows"},
        {{"activate", "--max_flows"}, "", ""},
        {{"call"}, "push", "push_pcap"},
        {{"events", "--sev"}, "", "error info warn"},
        {{"evidence"}, "", "ls prune show"},
        {{"coffee"}, "dp.veld", "dp.veld.sui_lut_remove_all_links"},
        {{"coffee", "-s", "/nonexistent", "f"}, "", ""},
        {{"classify", "a.pcap"}, "", "FILES"},
        {{"load"}, "--path=", "FILES"},
        {{"load"}, "--nothing=", ""},
        {{"collect", "show"}, "", ""},
    };
    for (const auto& c : CASES) {
        const Completion got = complete(program.app(), {.address = "/nonexistent"}, c.before, c.prefix);
        std::string found = got.files ? "FILES" : "";
        for (const Candidate& one : got.candidates)
            found += (found.empty() ? "" : " ") + one.text;
        EXPECT_EQ(found, c.found) << testing::PrintToString(c.before) << " " << c.prefix;
    }
}

}  // namespace
}  // namespace brumectl
