// The words as people type them, against the real daemon.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <csignal>

#include "client/run_program.h"
#include "infra/corvo_json.h"
#include "support/daemon.h"
#include "tools/captures/capture_files.h"
#include "tools/captures/sample_flows.h"

namespace test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

using Words = std::vector<std::string>;

TEST(Words, ASessionFromLoadToShutdown) {
    Daemon daemon({.engine_dir = OUR_ENGINE_DIR});
    write_pcap(daemon.dir().file("sample.pcap"), sample_frames());
    const struct {
        Words words;
        const char* shown;
    } STEPS[] = {
        {{"status"}, "state:          not loaded"},
        {{"load"}, "ok\n"},
        {{"activate", "--max_flows", "1000"}, "ok\n"},
        {{"status"}, "engine ndpi:"},
        {{"cmds"}, "push_pcap      Classifies"},
        {{"push_pcap", daemon.dir().file("sample.pcap"), "--reset"}, "protocol"},
        {{"push_pcap", daemon.dir().file("sample.pcap"), "--extended"}, "destination"},
        {{"collect", "ls"}, "protocols"},
        {{"collect", "set_exporter", "--type", "none"}, "ok\n"},
        {{"health", "show", "--verbose"}, "state:"},
        {{"health", "configure", "{}"}, "ok\n"},
        {{"echo", "[status %s]"}, "ok\n"},
        {{"log", "-n", "5"}, "[status %s]"},
        {{"log", "--level", "debug", "--comp", "rpc"}, "ok\n"},
        {{"log", "--levels"}, "rpc:      DEBUG"},
        {{"log", "--level", "info", "--reset"}, "ok\n"},
        {{"notifications", "log"}, "core.server.up"},
        {{"notifications", "alerts", "--sev", "error"}, "no alerts\n"},
        {{"notifications", "socket", "add", "/tmp/x", "--json"}, "\"result\":{}"},
        {{"notifications", "socket", "ls"}, "/tmp/x"},
        {{"notifications", "socket", "delete", "/tmp/x"}, "ok\n"},
        {{"hogs"}, "no stalls\n"},
        {{"call", "log", "type=log", "maxlines=1"}, "] - 2"},
        {{"call", "collect", "cmd=set_exporter", "socket.type=none"}, "ok\n"},
        {{"call", "coffee", R"({"func":"dp.ft.count"})"}, ""},
        {{"schema", "ping"}, "\"name\" : \"ping\""},
        {{"deactivate"}, "ok\n"},
        {{"unload"}, "ok\n"},
        {{"shutdown"}, "ok\n"},
    };
    for (const auto& step : STEPS) {
        Outcome outcome = brumectl(step.words, {.socket = daemon.socket_path()});
        EXPECT_EQ(outcome.status, 0) << step.words[0] << ": " << outcome.err;
        EXPECT_THAT(outcome.out, AllOf(HasSubstr(step.shown), Not(HasSubstr("\x1b")))) << step.words[0];
        EXPECT_EQ(outcome.err, "");
    }
    EXPECT_EQ(daemon.wait_exit(), 0);
}

TEST(Words, WhatCantBeMeantIsAnsweredWithTheNearestThingThatCan) {
    const struct {
        Words words;
        const char* complaint;
    } CASES[] = {
        {{}, "a word is missing"},
        {{"statsu"}, "unknown word 'statsu' (did you mean 'status'?)"},
        {{"status", "--jsn"}, "unknown option '--jsn' (did you mean '--json'?)"},
        {{"status", "now"}, "'now' is one word too many"},
        {{"activate", "--max_flow", "5"}, "(did you mean '--max_flows'?)"},
        {{"activate", "--max_flows", "many"}, "'resources.max_flows' takes 0 to 4294967295, not 'many'"},
        {{"activate"}, "'resources.max_flows' is missing"},
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
    for (const auto& c : CASES) {
        Outcome outcome = brumectl(c.words, {.socket = "/nonexistent"});
        EXPECT_EQ(outcome.status, 2) << outcome.err;
        EXPECT_THAT(outcome.err,
                    AllOf(StartsWith("brumectl: "), HasSubstr(c.complaint), HasSubstr("\nUsage: brumectl")));
        EXPECT_THAT(outcome.out, IsEmpty());
    }
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
        for (const Words& words : {Words{"--help"}, Words{"schema"}, Words{"status"},
                                   Words{"status", "--json"}, Words{"metrics"}}) {
            Outcome outcome =
                brumectl(words, {.socket = daemon.socket_path(), .before_exec = c.stdout_becomes});
            EXPECT_EQ(outcome.status, c.status) << words[0];
            EXPECT_EQ(outcome.err, c.complaint) << words[0];
        }
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
    kill(program.pid(), SIGINT);
    EXPECT_EQ(program.wait(), 128 + SIGINT);
    close(ends[0]);
    close(ends[1]);
}

TEST(Words, ARefusalIsStatusOneAndWithJsonStillTheReply) {
    Daemon daemon;
    Outcome outcome = brumectl({"mt", "--json"}, {.socket = daemon.socket_path()});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(parse(outcome.out)["error"]["code"], -32000);
    EXPECT_EQ(outcome.err, "brumectl: Mem tracing is not built into this image\n");
    outcome = brumectl({"call", "pong"}, {.socket = daemon.socket_path()});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err, "brumectl: Method 'pong' not registered (did you mean 'ping'?)\n");
}

TEST(Words, AMethodThatAnEngineBringsAlongIsCalledLikeAnyOther) {
    Daemon daemon({.args = {"-a"}, .engine_dir = EXTENDER_ENGINE_DIR});
    Outcome outcome = brumectl({"call", "extender.hello"}, {.socket = daemon.socket_path()});
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_THAT(outcome.out, HasSubstr("yes"));
    EXPECT_THAT(brumectl({"cmds"}, {.socket = daemon.socket_path()}).out,
                HasSubstr("extender.hello  (the engine's own)"));
}

TEST(Words, ParametersAreReadFromStdin) {
    Daemon daemon;
    const ProgramSetup setup{.socket = daemon.socket_path(), .input = "{\"message\":\n\"from stdin\"}\n"};
    EXPECT_EQ(brumectl({"call", "echo", "-"}, setup).status, 0);
    EXPECT_TRUE(daemon.wait_for_log("from stdin"));
    EXPECT_EQ(brumectl({"call", "echo", "-"}, {.socket = daemon.socket_path(), .input = "[]"}).status, 2);
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
    kill(follower.pid(), SIGINT);
    EXPECT_EQ(follower.wait(), 128 + SIGINT);
}

TEST(Words, CompletionScriptsAreWhatTheirShellReads) {
    TempDir dir;
    std::string script = dir.write("c", brumectl({"completion", "bash"}).out);
    std::string command = "bash -c '. " + script +
                          "; COMP_WORDS=(brumectl --timeout 5 log --level w); COMP_CWORD=5; _brumectl;"
                          " echo ${COMPREPLY[@]}; COMP_WORDS=(brumectl collect d); COMP_CWORD=2; _brumectl;"
                          " echo ${COMPREPLY[@]}' > " +
                          dir.file("out");
    EXPECT_EQ(system(command.c_str()), 0);
    EXPECT_EQ(read_file(dir.file("out")), "warn\ndisable\n");
    EXPECT_THAT(brumectl({"completion", "zsh"}).out, StartsWith("#compdef brumectl\n"));
}

}  // namespace
}  // namespace test
