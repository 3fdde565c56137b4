// The words as people type them, against the real daemon.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <csignal>
#include <utility>

#include "client/run_program.h"
#include "support/daemon.h"
#include "tools/captures/capture_files.h"
#include "tools/captures/sample_flows.h"

namespace test {
namespace {

using testing::_;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

using Words = std::vector<std::string>;

TEST(Words, ASessionFromLoadToShutdown) {
    Daemon daemon({.engine_dir = OUR_ENGINE_DIR});
    const std::string capture = daemon.dir().file("sample.pcap");
    write_pcap(capture, sample_frames());
    const std::vector<Step> STEPS = {
        {{"status"}, 0, HasSubstr("state:          not loaded")},
        {{"load"}, 0, "ok\n"},
        {{"activate", "--max_flows", "1000"}, 0, "ok\n"},
        {{"status"}, 0, HasSubstr("engine ndpi:")},
        {{"cmds"}, 0, HasSubstr("push_pcap       Classifies")},
        {{"push_pcap", capture, "--reset"}, 0, HasSubstr("protocol")},
        {{"push_pcap", capture, "--extended"}, 0, HasSubstr("destination")},
        {{"collect", "ls"}, 0, HasSubstr("protocols")},
        {{"collect", "set_exporter", "--type", "none"}, 0, "ok\n"},
        {{"health", "show", "--verbose"}, 0, HasSubstr("state:")},
        {{"health", "configure", "{}"}, 0, "ok\n"},
        {{"echo", "[status %s]"}, 0, "ok\n"},
        {{"call", "echo", "-"}, 0, "ok\n", "", "{\"message\":\n\"from stdin\"}\n"},
        {{"call", "echo", "-"}, 2, "", HasSubstr("\nUsage: "), "[]"},
        {{"log", "-n", "5"}, 0, AllOf(HasSubstr("[status %s]"), HasSubstr("from stdin"))},
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
        {{"schema", "ping"}, 0, HasSubstr("\"name\" : \"ping\"")},
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
        {{"activate", "--max_flows", "many"}, "'resources.max_flows' takes 0 to 4294967295, not 'many'"},
        {{"collect", "shw"}, "(did you mean 'show'?)"},
        {{"coffee", "f", "1", "x"}, "'args' takes 0 to 4294967295, not 'x'"},
        {{"log", "--level", "wran"}, "(did you mean 'warn'?)"},
        {{"log", "--comp", "rpc"}, "--comp needs the --level"},
        {{"schema", "pnig"}, "no method 'pnig' (did you mean 'ping'?)"},
        {{"call", "log", "tipe=log"}, "'log' has no parameter 'tipe' (did you mean 'type'?)"},
        {{"call", "ping", "[1]"}, "neither NAME=VALUE nor"},
        {{"call", "ping", R"([{"a":1}])"}, "neither NAME=VALUE nor"},
        {{"call", "ping", "{\"a\""}, "no JSON"},
        {{"call", "ping", "{} {}"}, "no JSON: something stands behind its end"},
        {{"--timeout", "0", "ping"}, "--timeout: takes 0.001 to 86400 seconds, not '0'"},
        {{"--timeout", "nan", "ping"}, "not 'nan'"},
        {{"top", "-b", "-d", "nan"}, "not 'nan'"},
        {{"--socket", "127.0.0.1:99999", "ping"}, "has no port from 1 to 65535"},
        {{"completion", "fish"}, "none of bash, zsh"},
    };
    for (const auto& [words, complaint] : CASES)
        expect_step({words, 2, "",
                     AllOf(StartsWith("brumectl: "), HasSubstr(complaint), HasSubstr("\nUsage: brumectl"))},
                    {.socket = "/nonexistent"});
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
    for (const char* text : {"first of them", "second of them"}) {
        params["message"] = text;
        daemon.result("echo", params);
        ASSERT_TRUE(follower.wait_for_out(text));
    }
    EXPECT_EQ(follower.out().find("first of them"), follower.out().rfind("first of them")) << follower.out();
    EXPECT_EQ(follower.end(SIGINT), 128 + SIGINT);
}

TEST(Words, CompletionScriptsAreWhatTheirShellReads) {
    TempDir dir;
    std::string command = "bash -c '. " + dir.write("c", brumectl({"completion", "bash"}).out) +
                          "; COMP_WORDS=(brumectl --timeout 5 log --level w); COMP_CWORD=5; _brumectl;"
                          " echo ${COMPREPLY[@]}; COMP_WORDS=(brumectl collect d); COMP_CWORD=2; _brumectl;"
                          " echo ${COMPREPLY[@]}' > " +
                          dir.file("out");
    EXPECT_EQ(system(command.c_str()), 0);
    EXPECT_EQ(read_file(dir.file("out")), "warn\ndisable\n");
    expect_step({{"completion", "zsh"}, 0, StartsWith("#compdef brumectl\n")});
}

}  // namespace
}  // namespace test
