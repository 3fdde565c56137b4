// The words as people type them, against the real daemon.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <set>
#include <sstream>
#include <utility>

#include "client/run_program.h"
#include "infra/corvo_version.h"
#include "support/daemon.h"
#include "tools/captures/capture_files.h"
#include "tools/captures/sample_flows.h"

namespace test {
namespace {

using testing::_;
using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

using Words = std::vector<std::string>;

TEST(Words, ASessionFromLoadToShutdown) {
    Daemon daemon({.engine_dir = OUR_ENGINE_DIR});
    const std::string capture = daemon.dir().file("sample.pcap");
    write_pcap(capture, sample_frames());
    const std::string cut = daemon.dir().write("cut.pcap", read_file(capture).substr(0, 4000));
    const std::vector<Step> STEPS = {
        {{"ping"}, 0, testing::MatchesRegex("answer from /.* in [0-9]+\\.[0-9][0-9] ms\n")},
        {{"status"}, 0, HasSubstr("state:          not loaded")},
        {{"load"}, 0, "ok\n"},
        {{"activate"}, 0, "ok\n"},
        {{"collect", "show", "flows"}, 0, ContainsRegex("max: +16384")},
        {{"status"}, 0, HasSubstr("engine ndpi:")},
        {{"cmds"}, 0, HasSubstr("push_pcap       Classifies")},
        {{"push_pcap", capture, "--reset"}, 0, HasSubstr("protocol")},
        {{"push_pcap", capture, "--extended"}, 0, HasSubstr("destination")},
        {{"collect", "ls"}, 0, HasSubstr("protocols")},
        {{"collect", "show", "flows"}, 0, testing::ContainsRegex("time: +20[0-9]+-[0-9]+-[0-9]+ [0-9]+:")},
        {{"collect", "set_exporter", "--type", "none"}, 0, "ok\n"},
        {{"health", "show", "--verbose"}, 0, HasSubstr("state:")},
        {{"health", "configure", "{}"}, 0, "ok\n"},
        {{"echo", "[status %s]"}, 0, "ok\n"},
        {{"--", "echo", "--not an option"}, 0, "ok\n"},
        {{"echo", "help"}, 0, "ok\n"},
        {{"coffee", "help"}, 0, HasSubstr("dp.ft.dump")},
        {{"log", "?"}, 0, HasSubstr("\nUsage: brumectl log ")},
        {{"help", "evidence", "ls"}, 0, HasSubstr("\nUsage: brumectl evidence ls ")},
        {{"evidence", "help", "ls"}, 0, HasSubstr("\nUsage: brumectl evidence ls ")},
        {{"version"}, 0, StartsWith("brumectl ")},
        {{"call", "echo", "-"}, 0, "ok\n", "", "{\"message\":\n\"from stdin\"}\n"},
        {{"call", "echo", "-"}, 2, "", HasSubstr("\nUsage: "), "[]"},
        {{"log", "-n", "09"},
         0,
         AllOf(HasSubstr("- [status %s]"), HasSubstr("- --not an option"), HasSubstr("- help"),
               HasSubstr("from stdin"))},
        {{"log", "--level", "debug", "--comp", "rpc"}, 0, "ok\n"},
        {{"log", "--levels"}, 0, HasSubstr("rpc:      DEBUG")},
        {{"log", "--level", "info", "--reset"}, 0, "ok\n"},
        {{"notifications", "log"}, 0, HasSubstr("core.server.up")},
        {{"notifications", "alerts", "--sev", "error"}, 0, "no alerts\n"},
        {{"notifications", "socket", "add", "/tmp/x", "--json"}, 0, HasSubstr("\"result\":{}")},
        {{"notifications", "socket", "ls"}, 0, HasSubstr("/tmp/x")},
        {{"notifications", "socket", "delete", "/tmp/x"}, 0, "ok\n"},
        {{"hogs"}, 0, "no stalls\n"},
        {{"call", "log", "type=log", "maxlines=1"}, 0, HasSubstr("] - 2")},
        {{"call", "collect", "cmd=set_exporter", "socket.type=none"}, 0, "ok\n"},
        {{"call", "coffee", R"({"func":"dp.ft.count"})"}},
        {{"call", "pong"}, 1, "", "brumectl: Method 'pong' not registered (did you mean 'ping'?)\n"},
        {{"mt", "--json"}, 1, HasSubstr(":-32000,"), "brumectl: Mem tracing is not built into this image\n"},
        {{"--result", "echo", "x"}, 0, "{}\n"},
        {{"mt", "--result"}, 1, "", "brumectl: Mem tracing is not built into this image\n"},
        {{"schema", "ping"}, 0, HasSubstr("\"name\":\"ping\"")},
        {{"schema", "attach"},
         0,
         AllOf(
             Not(HasSubstr("x-build")),
             HasSubstr(corvo::Version::g_in_slave_mode ? "This daemon refuses it" : "\"description\":\"\""))},
        {{"deactivate"}, 0, "ok\n"},
        {{"activate", "--max_flows", "1"}, 0, "ok\n"},
        {{"push_pcap", cut},
         0,
         HasSubstr("total "),
         ContainsRegex(
             "packets found no room for their flows\nbrumectl: /.*: damaged after [0-9]+ packets: ")},
        {{"deactivate"}, 0, "ok\n"},
        {{"unload"}, 0, "ok\n"},
        {{"shutdown"}, 0, "ok\n"},
    };
    expect_steps(STEPS, {.socket = daemon.socket_path()});
    EXPECT_EQ(daemon.wait_exit(), 0);
}

TEST(Words, WhatCantBeMeantIsAnsweredWithTheNearestThingThatCan) {
    const std::pair<Words, const char*> CASES[] = {
        {{}, "a word is missing"},
        {{"statsu"}, "unknown word 'statsu' (did you mean 'status'?)"},
        {{"status", "--jsn"}, "unknown option '--jsn' (did you mean '--json'?)"},
        {{"status", "now"}, "'now' is one word too many"},
        {{"activate", "--max_flow", "5"}, "(did you mean '--max_flows'?)"},
        {{"activate", "--max_flows", "many"},
         "'resources.max_flows' must be from 1 to 4294967295, not 'many'"},
        {{"collect", "shw"}, "(did you mean 'show'?)"},
        {{"coffee", "f", "1", "[2,3]"}, "'args' must be from 0 to 4294967295, not '[2,3]'"},
        {{"classify", "--ns", "-1", "x"}, "'--ns' must be from 0 to 4294967295, not '-1'"},
        {{"top", "-b", "-n", "0"}, "'--count' must be from 1 to 4294967295, not '0'"},
        {{"log", "-n", "0"}, "'--lines' must be at least 1 without --follow"},
        {{"log", "-n"}, "'--lines' needs a value"},
        {{"log", "-n", "1", "-n", "2"}, "'--lines' is given more than once"},
        {{"log", "--level"}, "'--level' needs a word: quiet, error"},
        {{"log", "--follow=5"}, "'--follow' takes no value but true or false"},
        {{"collect", "set_interval", "x", "--interval", "0"}, "'interval' must be from 1 to 4294967295"},
        {{"events", "--sev", "bad"}, "'--sev' must be one of info, warn, error, not 'bad'"},
        {{"echo"}, "'message' is missing"},
        {{"evidence"}, "'evidence' needs a word: ls, show, prune"},
        {{"evidence", "prune", "--keep", "-1"}, "'--keep' must be from 0"},
        {{"help", "statsu"}, "unknown word 'statsu' (did you mean 'status'?)"},
        {{"quit"}, "unknown word 'quit'"},
        {{"log", "--level", "wran"}, "(did you mean 'warn'?)"},
        {{"log", "--comp", "rpc"}, "--comp needs the --level"},
        {{"schema", "pnig"}, "no method 'pnig' (did you mean 'ping'?)"},
        {{"call", "log", "tipe=log"}, "'log' has no parameter 'tipe' (did you mean 'type'?)"},
        {{"call", "ping", "[1]"}, "the parameters must be a JSON object"},
        {{"call", "ping", "{}", R"([{"a":1}])"}, "neither NAME=VALUE nor"},
        {{"call", "ping", "{\"a\""}, "no JSON"},
        {{"call", "ping", "{} {}"}, "no JSON: something stands behind its end"},
        {{"--timeout", "0", "ping"}, "'--timeout' must be from 0.001 to 86400 seconds, not '0'"},
        {{"--timeout", "nan", "ping"}, "not 'nan'"},
        {{"top", "-b", "-d", "nan"}, "not 'nan'"},
        {{"--socket", "127.0.0.1:99999", "ping"}, "has no port from 1 to 65535"},
        {{"completion", "csh"}, "must be one of bash, zsh, fish"},
        {{"wait", "--for", "activate"}, "attached, gone, not 'activate' (did you mean 'activated'?)"},
        {{"reload", "--max_flows", "no"}, "'resources.max_flows' must be from 0 to"},
        {{"--socket=", "ping"}, "'--socket' must not be empty"},
    };
    for (const auto& [words, complaint] : CASES)
        expect_step({words, 2, "",
                     AllOf(StartsWith("brumectl: "), HasSubstr(complaint), HasSubstr("\nUsage: brumectl"),
                           HasSubstr("\nTry: brumectl help"))},
                    {.socket = "/nonexistent"});
}

TEST(Words, AnEngineHereIsLoadedThoughTheDaemonIsElsewhere) {
    Daemon daemon;
    const auto here = [] { EXPECT_EQ(chdir(OUR_ENGINE_DIR "/.."), 0); };
    expect_step({{"load", "--path", "lib"}, 0, "ok\n"},
                {.socket = daemon.socket_path(), .before_exec = here});
}

void write_to(const char* file) {
    dup2(open(file, O_WRONLY), STDOUT_FILENO);
}

void write_to_nobody() {
    int ends[2];
    if (pipe(ends) == 0 && dup2(ends[1], STDOUT_FILENO) >= 0) close(ends[0]);
}

TEST(Words, WhatCantBeWrittenIsToldAndFailsButNotThatTheReaderHasSeenEnough) {
    Daemon daemon;
    const struct {
        void (*stdout_becomes)();
        int status;
        const char* complaint;
    } CASES[] = {
        {[] { write_to("/dev/full"); }, 1,
         "brumectl: the output can't be written: No space left on device\n"},
        {write_to_nobody, 128 + SIGPIPE, ""},
        {[] { close(STDOUT_FILENO); }, 1, "brumectl: the output can't be written: Bad file descriptor\n"},
    };
    for (const auto& c : CASES)
        for (const Words& words :
             {Words{"--help"}, Words{"schema"}, Words{"status"}, Words{"status", "--json"}, Words{"metrics"}})
            expect_step({words, c.status, _, c.complaint},
                        {.socket = daemon.socket_path(), .before_exec = c.stdout_becomes});
}

TEST(Words, AReaderWhoLeavesLaterIsNoticedWithoutAComplaint) {
    Daemon daemon({.args = {"-a"}, .engine_dir = OUR_ENGINE_DIR});
    for (const Words& words : {Words{"events", "-f"}, Words{"log", "-f"}, Words{"top", "-b"}}) {
        int ends[2];
        ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
        Program program(
            words, {.socket = daemon.socket_path(), .before_exec = [&] { dup2(ends[1], STDOUT_FILENO); }});
        close(ends[1]);
        char first = 0;
        EXPECT_EQ(read(ends[0], &first, 1), 1);
        close(ends[0]);
        EXPECT_EQ(program.wait(), 128 + SIGPIPE) << words[0];
        EXPECT_EQ(program.err(), "");
    }
}

TEST(Words, JsonIsIndentedAtATerminalOnly) {
    Daemon daemon({.args = {"-a"}, .engine_dir = OUR_ENGINE_DIR});
    const std::string capture = daemon.dir().file("sample.pcap");
    write_pcap(capture, sample_frames());
    for (const Words& words :
         {Words{"ping", "--json"}, Words{"schema"}, Words{"schema", "ping"}, Words{"events", "--json"},
          Words{"top", "-n", "1", "--json"}, Words{"classify", "--json", capture, "--packets"},
          Words{"check", "--json", "/dev/null"}}) {
        ProgramSetup setup = {.socket = daemon.socket_path()};
        const std::string compact = brumectl(words, setup).out;
        EXPECT_EQ(std::count(compact.begin(), compact.end(), '\n'), 1) << words[0];
        setup.terminal = true;
        std::string indented = brumectl(words, setup).out;
        if (const size_t bar = indented.rfind("\x1b[K"); bar != std::string::npos) indented.erase(0, bar + 3);
        indented.erase(0, indented.find_first_of("[{"));  // remarks go to the same terminal
        EXPECT_NE(indented.find("\" : "), std::string::npos) << words[0];
        EXPECT_EQ(parse(indented).size(), parse(compact).size()) << words[0];
    }
}

TEST(Words, AComplaintIsMadeThoughNobodyReadsTheOutput) {
    const Outcome outcome = brumectl({"metrics"}, {.socket = "/nonexistent", .before_exec = write_to_nobody});
    EXPECT_LT(outcome.status, 128);
    EXPECT_THAT(outcome.err, HasSubstr("/nonexistent"));
}

TEST(Words, AReaderWhoReadsNothingCantKeepCtrlCFromEndingTheProgram) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const int room = fcntl(ends[1], F_SETPIPE_SZ, 4096);
    Program program({"schema"}, {.before_exec = [&] { dup2(ends[1], STDOUT_FILENO); }});
    EXPECT_TRUE(eventually([&] {
        int waiting = 0;
        return ioctl(ends[0], FIONREAD, &waiting) == 0 && waiting == room;
    }));
    EXPECT_EQ(program.end(SIGINT), 128 + SIGINT);
    close(ends[0]);
    close(ends[1]);
}

TEST(Words, AMethodThatAnEngineBringsAlongIsCalledLikeAnyOther) {
    Daemon daemon({.args = {"-a"}, .engine_dir = EXTENDER_ENGINE_DIR});
    expect_steps({{{"call", "extender.hello"}, 0, HasSubstr("yes")},
                  {{"cmds"}, 0, HasSubstr("extender.hello  (the engine's own)")}},
                 {.socket = daemon.socket_path()});
}

TEST(Words, TheLogIsFollowedUntilCtrlC) {
    Daemon daemon;
    Program follower({"log", "-f", "-n", "1"}, {.socket = daemon.socket_path()});
    ASSERT_TRUE(follower.wait_for_out("Waiting for messages"));
    Json::Value params;
    // The method's own answer ends before a line that is as long as the second.
    for (const std::string& text :
         {std::string("first of them"), std::string(9000, 'x'), std::string("last of them")}) {
        params["message"] = text;
        daemon.result("echo", params);
        ASSERT_TRUE(follower.wait_for_out(text));
    }
    EXPECT_EQ(follower.out().find("first of them"), follower.out().rfind("first of them")) << follower.out();
    expect_step({{"log", "-n", "1"}, 0, HasSubstr("last of them")}, {.socket = daemon.socket_path()});
    EXPECT_EQ(follower.end(SIGINT), 128 + SIGINT);
}

TEST(Words, NamesThatOnlyTheRunningSystemKnowsAreCompleted) {
    Daemon daemon({.args = {"-a", "--attach", "if0"},
                   .engine_dir = SCRIPTED_ENGINE_DIR,
                   .files = {{"script", R"(return get_collectors {"collectables":)"
                                        R"([{"name":"flows","enabled":true},"memory","$(x)y","-x"]})"}}});
    const std::string evidence = daemon.dir().file("cvevents");
    std::filesystem::create_directories(evidence + "/2026_11_24_13_05_59");
    const std::string own_interfaces = "default\tthe one that leads to the Internet\n";
    const std::pair<const char*, testing::Matcher<std::string>> CASES[] = {
        {"collect show ", "flows\tenabled\nmemory\t\n"},
        {"collect --interval 5 set_interval m", "memory\t\n"},
        {"-s /nonexistent collect show ", ""},
        {"attach ", AllOf(StartsWith(own_interfaces), HasSubstr("\nlo\t"))},
        {"-s 192.0.2.1:4040 attach ", own_interfaces},
        {"detach ", "if0\tattached\n"},
        {"coffee dp.ft.c", "dp.ft.count\tnumber of flows\n"},
        {"push_pcap --dpaddr=", "--dpaddr=dp0\t\n"},
        {"log --comp ser", "server\t\n"},
        {"log --comp de", "default\tINFO\n"},
        {"evidence show ", "2026_11_24_13_05_59\tkilled\n"},
        {"evidence show --dir /nonexistent ", ""},
        {"ping --j", "--json\tAnswers as the daemon gave them\n"},
    };
    for (const auto& [line, found] : CASES)
        expect_step({{"complete", "--line=brumectl " + std::string(line)}, 0, found},
                    {.socket = daemon.socket_path()});
    expect_step({{"complete", "--line=brumectl check "}, 1, "", _}, {.socket = daemon.socket_path()});
    Daemon without_engine;
    expect_step({{"complete", "--line=brumectl collect show "}, 0, ""},
                {.socket = without_engine.socket_path()});
    EXPECT_THAT(daemon.log() + without_engine.log(), Not(HasSubstr("ERROR"))) << "Tab asks nothing wrong";
}

TEST(Words, CompletedFunctionsAreThoseOfOurEngine) {
    Daemon daemon({.args = {"-a"}, .engine_dir = OUR_ENGINE_DIR});
    const auto names = [&](const Words& words, char end) {
        std::istringstream told(brumectl(words, {.socket = daemon.socket_path()}).out);
        std::set<std::string> found;
        for (std::string line; std::getline(told, line);)
            found.insert(line.substr(0, line.find(end)));
        return found;
    };
    EXPECT_EQ(names({"complete", "--line=brumectl coffee "}, '\t'), names({"coffee", "help"}, ':'));
}

struct ShellCase {
    const char* shell;
    const char* test;
    const char* out;
};

void PrintTo(const ShellCase& c, std::ostream* out) {
    *out << c.shell;
}

class CompletionScript : public testing::TestWithParam<ShellCase> {};

INSTANTIATE_TEST_SUITE_P(
    Shells, CompletionScript,
    testing::Values(
        ShellCase{"bash",
                  R"(source ./script
        try() { COMP_LINE=$1 COMP_POINT=${#1}; shift; COMP_WORDS=("$@") COMP_CWORD=$(($# - 1)); _brumectl
                echo ${COMPREPLY[@]}; }
        try 'brumectl collect d' brumectl collect d
        try 'brumectl log --level=w' brumectl log --level = w
        try 'brumectl -s 1.2.3.4:5 ping --js' brumectl -s 1.2.3.4 : 5 ping --js
        compopt() { echo $*; }
        try 'brumectl check ' brumectl check '')",
                  "disable\nwarn\n--json\n-o default\n\n"},
        ShellCase{"zsh",
                  R"(_files() { echo files; }
        _describe() { print -l -- "${(@P)${@[-1]}}"; }
        words=(brumectl -s a:b evidence s) CURRENT=5 PREFIX=s; source ./script
        words=(brumectl check '') CURRENT=3 PREFIX=; _brumectl)",
                  "show:One report with its stack\nfiles\n"},
        ShellCase{"fish",
                  "source ./script; complete -C 'brumectl evidence s'; complete -C 'brumectl check scr'",
                  "show\tOne report with its stack\nscript\n"}),
    [](const auto& info) { return std::string(info.param.shell); });

TEST_P(CompletionScript, IsWhatItsShellReads) {
    const std::string shell = GetParam().shell;
    if (system(("command -v " + shell + " >/dev/null").c_str()) != 0)
        GTEST_SKIP() << shell << " isn't installed";
    TempDir dir;
    dir.write("script", brumectl({"completion", shell}).out);
    dir.write("test", GetParam().test);
    const std::string command = "cd " + dir.path() + " && ln -s " + BRUMECTL_FILE +
                                " && HOME=. PATH=.:$PATH " + shell + " test >out 2>&1";
    EXPECT_EQ(system(command.c_str()), 0);
    EXPECT_EQ(read_file(dir.file("out")), GetParam().out);
}

}  // namespace
}  // namespace test
