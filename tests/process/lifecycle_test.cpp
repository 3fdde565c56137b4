// Start, stop and configuration of the real daemon.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <filesystem>

#include "infra/corvo_version.h"
#include "support/daemon.h"
#include "support/load_params.h"

namespace test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

constexpr char CAUSE[] = "CP shutdown - cause: ";

TEST(Lifecycle, TheStartTellsWhatIsRunning) {
    Daemon daemon;
    size_t at = 0;
    for (const char* text :
         {"[server][INFO ] - Current session logging being saved at '", "Configured in: 'userspace mode'",
          "Architecture:   ", " @ 32 bit", "Compiler:       gcc ",
          "Attributes:     ", "GIT SHA:        ", "Version:        dev @ ", "Image:          dev",
          "*************    in production     ************", "Waiting for messages"}) {
        const std::string log = daemon.log();
        at = log.find(text, at);
        ASSERT_NE(at, std::string::npos) << text << " is missing or out of order in\n" << log;
    }
    EXPECT_THAT(daemon.out(), HasSubstr("Waiting for messages"));
    const std::string log = daemon.log();
    EXPECT_EQ(log.find(", bare metal") != std::string::npos, corvo::Version::g_bare_metal);
    EXPECT_EQ(log.find(", slave\n") != std::string::npos, corvo::Version::g_in_slave_mode);
}

TEST(Lifecycle, AStartThatFailsSaysWhyAndEndsWithStatusZero) {
    Daemon first({.tcp = true});
    const std::string taken = "127.0.0.1:" + std::to_string(first.port());
    const struct {
        DaemonSetup setup;
        std::string text;
    } cases[] = {
        {{.args = {"-a"}}, "Failed loading Corvo CP dynamic library: "},
        {{.args = {"-s", taken}}, "Failed to bind address [TCP " + taken + "] : Address already in use"},
        {{.args = {"-s", "/nowhere/at/all"}}, "Bind failed [No such file or directory]"},
        {{.args = {"-s", "/nowhere/at/all", "-v", "debug"}}, "Destroying UNIX socket: /nowhere/at/all"},
        {{.args = {"-a"}, .files = {{".cvconfig", "[]"}}},
         "Can't use configuration file (./.cvconfig) in conjunction with -a or --attach"},
    };
    for (auto c : cases) {
        SCOPED_TRACE(c.text);
        c.setup.wait_ready = false;
        Daemon daemon(c.setup);
        EXPECT_EQ(daemon.wait_exit(), 0);
        EXPECT_THAT(daemon.log(), HasSubstr(c.text));
        EXPECT_THAT(daemon.log(), HasSubstr(std::string(CAUSE) + "fatal error detected"));
    }
}

TEST(Lifecycle, ABadCommandLineEndsWithStatusTwo) {
    Daemon daemon({.args = {"--attach", "lo"}, .wait_ready = false});
    EXPECT_EQ(WEXITSTATUS(daemon.wait_exit()), 2);
    EXPECT_THAT(daemon.err(), HasSubstr("brumecpd: error: '--attach' is supported only with '--activate'\n"));
}

TEST(Lifecycle, ALogFileThatCannotBeOpenedCostsOnlyTheFile) {
    Daemon daemon({.log_file = "/nowhere/log"});
    EXPECT_THAT(daemon.out(), HasSubstr("Failed creating a log file: '/nowhere/log'"));
    EXPECT_EQ(daemon.result("status")["logfile"], "");
    EXPECT_EQ(daemon.stop(), 0);
}

TEST(Lifecycle, AStopSignalDuringTheAutomaticStartEndsTheDaemonByTheOrdinaryRoad) {
    Daemon daemon({.args = {"-a"},
                   .engine_dir = SCRIPTED_ENGINE_DIR,
                   .files = {{"script", "delay init 700\n"}},
                   .wait_ready = false});
    ASSERT_TRUE(daemon.wait_for_log("Loading corvo engine"));
    daemon.signal(SIGTERM);
    EXPECT_EQ(daemon.wait_exit(), 0);
    EXPECT_THAT(daemon.log(), HasSubstr("Unloading corvo engine"));
    EXPECT_THAT(daemon.log(), HasSubstr(std::string(CAUSE) + "received signal SIGTERM"));
    EXPECT_THAT(daemon.engine_calls(), HasSubstr("deinit"));
}

TEST(Lifecycle, TheStopRoutineBringsTheEngineDownInOrder) {
    Daemon daemon({.args = {"-a", "--attach", "if0", "--attach", "if1"}, .engine_dir = SCRIPTED_ENGINE_DIR});
    EXPECT_EQ(daemon.result("status")["state"], "activated (attached)");
    EXPECT_EQ(daemon.stop(), 0);
    EXPECT_FALSE(std::filesystem::exists(daemon.socket_path()));
    const std::string calls = daemon.engine_calls();
    size_t at = 0;
    for (const char* call : {"intf_detach if0", "intf_detach if1", "deactivate", "deinit"}) {
        at = calls.find(call, at);
        ASSERT_NE(at, std::string::npos) << call << " is missing or out of order in\n" << calls;
    }
}

TEST(Lifecycle, ADaemonLeavesTheStandardDescriptorsClosedAndLogsToItsFile) {
    Daemon starter({.args = {"-d"}, .wait_ready = false});
    EXPECT_EQ(starter.wait_exit(), 0);
    ASSERT_TRUE(starter.wait_for_log("Waiting for messages"));
    EXPECT_THAT(starter.log(), HasSubstr("Starting server as a daemon"));
    const pid_t pid = starter.result("status")["pid"].asInt();
    const std::string fds = "/proc/" + std::to_string(pid) + "/fd/";
    for (const char* fd : {"0", "1", "2"})
        EXPECT_FALSE(std::filesystem::exists(fds + fd)) << fd;
    // A library must get none of them.
    starter.result("load", load_params(SCRIPTED_ENGINE_DIR));
    for (const char* fd : {"0", "1", "2"})
        EXPECT_EQ(std::filesystem::read_symlink(fds + fd), "/dev/null");
    kill(pid, SIGTERM);
    EXPECT_TRUE(eventually([&] { return !is_running(pid); }));
    EXPECT_THAT(starter.log(), HasSubstr("received signal SIGTERM"));
}

TEST(ConfigFile, RunsItsRequestsAndStopsTheDaemonAtTheFirstFailure) {
    const struct {
        const char* name;
        const char* content;
        std::vector<const char*> logged;
        bool stops;
    } cases[] = {
        {"nothing to do", "[]", {"Reading Configuration from file: f"}, false},
        {"comments, and a request without id whose failure nobody sees",
         R"([ /* hello */ {"jsonrpc":"2.0","method":"nosuch"},
              {"jsonrpc":"2.0","id":1,"method":"echo","params":{"message":"50% done"}} ])",
         {"50% done"},
         false},
        {"an object", "{}", {"Json Array of commands expected in config file"}, true},
        {"no JSON", "[", {"Failed to parse config file: \n["}, true},
        {"too deep", nullptr, {"Failed to parse config file: "}, true},
        {"a batch runs whole, and its error is specific",
         R"([[{"jsonrpc":"2.0","id":1,"method":"echo"},
              {"jsonrpc":"2.0","id":2,"method":"echo","params":{"message":"second of the batch"}}],
             {"jsonrpc":"2.0","id":3,"method":"echo","params":{"message":"never"}}])",
         {"second of the batch", "Config file error: field 'message' is missing",
          "Config file encountered an error, exiting"},
         true},
        {"a message where there's nothing more specific",
         R"([{"jsonrpc":"2.0","id":1,"method":"nosuch"}])",
         {"Config file error: Method 'nosuch' not registered"},
         true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string content = c.content ? c.content : std::string(100000, '[');
        Daemon daemon({.args = {"-c", "f"}, .files = {{"f", content}}, .wait_ready = !c.stops});
        if (c.stops) {
            EXPECT_EQ(daemon.wait_exit(), 0);
            EXPECT_THAT(daemon.log(), HasSubstr(std::string(CAUSE) + "unknown error"));
        }
        for (const char* text : c.logged)
            EXPECT_TRUE(daemon.wait_for_log(text)) << text << "\n" << daemon.log();
        EXPECT_THAT(daemon.log(), Not(HasSubstr("Never")));
        EXPECT_THAT(daemon.log(), Not(HasSubstr("- never")));
    }
}

TEST(ConfigFile, OneThatIsMissingCostsALineAndNoMore) {
    Daemon daemon({.args = {"-c", "not/there"}});
    EXPECT_TRUE(daemon.wait_for_log("[server][ERROR] - Failed to read config file: not/there"));
    EXPECT_EQ(daemon.stop(), 0);
}

TEST(ConfigFile, TheDefaultOneIsPlayedWhenItStandsInTheWorkingDirectory) {
    Daemon daemon(
        {.files = {{".cvconfig", R"([{"jsonrpc":"2.0","id":1,"method":"shutdown"}])"}}, .wait_ready = false});
    EXPECT_EQ(daemon.wait_exit(), 0);
    EXPECT_THAT(daemon.log(), HasSubstr("Reading Configuration from file: ./.cvconfig"));
    EXPECT_THAT(daemon.log(), HasSubstr("server received 'shutdown' request"));
}

}  // namespace
}  // namespace test
