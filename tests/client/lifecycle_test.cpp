// `wait` and `reload` against real daemons and engines, good ones and broken ones.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>

#include "client/run_program.h"
#include "infra/corvo_version.h"
#include "support/daemon.h"

namespace test {
namespace {

using testing::_;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

const std::string SCRIPTED = ENGINES_DIR "/scripted";

TEST(Wait, EndsWhenItIsSoAndFollowsTheDaemonToItsEnd) {
    Daemon daemon({.engine_dir = INERT_ENGINE_DIR, .wait_ready = false});
    const ProgramSetup setup{.socket = daemon.socket_path()};
    expect_step({{"wait", "--timeout", "30"}, 0, "not loaded\n"}, setup);
    Program activated({"wait", "--for", "activated", "--timeout", "30"}, setup);
    Program gone({"--json", "wait", "--for", "gone", "--timeout", "30"}, setup);
    daemon.result("load");
    daemon.result("activate", parse(R"({"resources":{"max_flows":1}})"));
    EXPECT_EQ(activated.wait(), 0);
    EXPECT_EQ(activated.out(), "activated\n");
    daemon.stop();
    EXPECT_EQ(gone.wait(), 0);
    EXPECT_EQ(gone.out(), "{\"state\":\"gone\"}\n");
}

TEST(Wait, TellsWhatItSawLastAndTheCauseThatTheLogHas) {
    Daemon daemon({.args = {"-c", "nosuch.json"}});
    expect_step({{"wait", "--for", "loaded", "--timeout", "2"},
                 4,
                 "",
                 "brumectl: not loaded in time: the engine is not loaded; the last error in its log: "
                 "Failed to read config file: nosuch.json\n"},
                {.socket = daemon.socket_path()});
    expect_step(
        {{"wait", "--timeout", "0.3"}, 4, "", HasSubstr("not answering in time: no daemon at /nosuch")},
        {.socket = "/nosuch"});
}

TEST(Reload, SwapsTheEngineWithWhatItWasToldAndGoesBackIfTheNewOneFails) {
    Daemon daemon({.engine_dir = OUR_ENGINE_DIR, .files = {{"script", "fail activate not today\n"}}});
    const auto back = [](const std::string& state) {
        return "brumectl: the swap failed, the old engine runs: " + state + "\n";
    };
    const auto untouched = Not(HasSubstr("unload"));
    expect_steps(
        {
            {{"reload"}, 1, "", "brumectl: no engine is loaded that could be swapped\n"},
            {{"load"}, 0, "ok\n"},
            {{"reload", ENGINES_DIR "/init_fails"}, 1, HasSubstr("failed: 100% broken"), back("deactivated")},
            {{"activate", "--max_flows", "77"}, 0, "ok\n"},
            {{"collect", "enable", "flows"}, 0, "ok\n"},
            {{"reload"}, 0, HasSubstr("the new engine runs: activated\n")},
            {{"--result", "collect", "show", "flows"}, 0, HasSubstr("\"max\":77,")},
            {{"collect", "ls"}, 0, HasSubstr("yes")},
            {{"reload", SCRIPTED},
             1,
             HasSubstr("activate: failed: not today\nunload: ok\n"),
             back("activated")},
            {{"--result", "collect", "show", "flows"}, 0, HasSubstr("\"max\":77,")},
            {{"reload", "/nosuch"}, 1, untouched, "brumectl: there is no libcvcp_u.so in /nosuch\n"},
            {{"reload", "--dp_workers", "129"}, 2, untouched, HasSubstr("resources.dp_workers' is ")},
            {{"reload", INERT_ENGINE_DIR, "--json"},
             0,
             HasSubstr(R"({"engine":"new","state":"activated","steps":[)")},
        },
        {.socket = daemon.socket_path()});
}

TEST(Reload, AttachesAgainOrDoesNothingWhereOnlyARestartCan) {
    Daemon daemon({.args = {"-a", "--attach", "if0"}, .engine_dir = SCRIPTED});
    const ProgramSetup setup{.socket = daemon.socket_path()};
    if (corvo::Version::g_in_slave_mode) {
        expect_step({{"reload"}, 1, "", HasSubstr("a daemon in slave mode can't attach if0 again")}, setup);
        return;
    }
    expect_step(
        {{"reload"},
         0,
         AllOf(HasSubstr("attach if0: ok\n"), HasSubstr("the new engine runs: activated (attached)\n"))},
        setup);
    daemon.script("fail deactivate stuck\n");
    expect_step({{"reload"},
                 1,
                 AllOf(HasSubstr("deactivate: failed: stuck\nattach if0: ok\n"), Not(HasSubstr("unload"))),
                 HasSubstr("the old engine runs: activated (attached)")},
                setup);
}

void write_to_nobody() {
    int ends[2];
    if (pipe(ends) == 0 && dup2(ends[1], STDOUT_FILENO) >= 0) close(ends[0]);
}

TEST(Reload, IsDoneToItsEndThoughTheReaderOrTheUserIsGoneButNotThoughTheDaemonIs) {
    Daemon daemon({.args = {"-a"}, .engine_dir = SCRIPTED});
    const Outcome unread =
        brumectl({"reload"}, {.socket = daemon.socket_path(), .before_exec = write_to_nobody});
    EXPECT_EQ(unread.status, 128 + SIGPIPE);
    EXPECT_EQ(daemon.result("status")["state"], "activated");
    const size_t first = daemon.engine_calls().size();
    daemon.script("delay deinit 500\n");
    Program program({"reload", "--json"}, {.socket = daemon.socket_path()});
    ASSERT_TRUE(eventually([&] { return daemon.engine_calls().find("deinit", first) != std::string::npos; }));
    EXPECT_EQ(program.end(SIGINT), 128 + SIGINT);
    EXPECT_THAT(program.out(), HasSubstr("\"engine\":\"new\""));
    EXPECT_EQ(daemon.result("status")["state"], "activated");
    daemon.script("crash init abort\n");
    expect_step({{"reload"},
                 3,
                 HasSubstr("/scripted: failed: no daemon at "),
                 HasSubstr("Connection refused; 'wait' and 'evidence' tell what became of it\n")},
                {.socket = daemon.socket_path()});
}

}  // namespace
}  // namespace test
