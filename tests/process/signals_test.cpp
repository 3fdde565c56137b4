// What signals leave behind: the real daemon under its watchdog, crashed and halted for real.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <deque>
#include <filesystem>

#include "support/daemon.h"
#include "support/load_params.h"
#include "support/temp_dir.h"

namespace test {
namespace {

namespace fs = std::filesystem;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

/** A supervised daemon with a scripted engine at work in it. */
class ScriptedDaemon {
 public:
    explicit ScriptedDaemon(std::vector<std::string> args = {}, const std::string& engine = {})
        : m_daemon({.args = std::move(args), .engine_dir = SCRIPTED_ENGINE_DIR, .watchdog = true}) {
        m_daemon.result("load", load_params(engine));
        m_daemon.result("activate", parse(R"({"resources":{"max_flows":10}})"));
    }

    Daemon* operator->() { return &m_daemon; }
    /** A request of `size` bytes that runs the engine's function; nobody waits for the reply. */
    void coffee(size_t size = 0) const {
        std::string text = R"({"jsonrpc":"2.0","id":1,"method":"coffee","params":{"func":"brew"}})";
        if (size > text.size()) text.insert(1, size - text.size(), ' ');
        ASSERT_TRUE(UnixClient(m_daemon.socket_path()).send(text));
    }
    /** The reports of this name in the directories of evidence. */
    std::vector<std::string> evidence(const std::string& name) const {
        std::vector<std::string> found;
        for (const auto& entry : fs::recursive_directory_iterator(m_daemon.dir().file("cvevents")))
            if (entry.path().filename() == name) found.push_back(read_file(entry.path()));
        return found;
    }

 private:
    Daemon m_daemon;
};

TEST(Signals, AServerThatDiesInsideTheEngineLeavesAWholeReportAndItsStack) {
    if (SANITIZED) GTEST_SKIP() << "the sanitizer reports crashes in its own way";
    const struct {
        const char* crash;
        const char* description;
        const char* report = "libcvcp_u.so(corvo_api_cp_coffee+";
        const char* log = " corvo_api_cp_coffee\n";
    } cases[] = {
        {"segv", "Segmentation fault"},
        {"abort", "Aborted"},
        {"ill", "Illegal instruction"},
        {"fpe", "Floating point exception"},
        {"bus", "Bus error"},
        {"sys", "Bad system call"},
        {"null", "Segmentation fault"},
        {"overflow", "Segmentation fault", "libcvcp_u.so(", " overflow_stack\n"},
        {"heap", "Aborted", "libcvcp_u.so(corvo_api_cp_coffee+", ""},
        {"inmalloc", "Aborted", "libcvcp_u.so(", ""},
    };
    std::deque<ScriptedDaemon> daemons;  // all at once: one of them takes its time to die
    for (const auto& c : cases) {
        daemons.emplace_back();
        daemons.back()->script(std::string("crash coffee ") + c.crash);
        daemons.back().coffee(60000);  // as long as a request may be
    }
    for (const auto& c : cases) {
        SCOPED_TRACE(c.crash);
        ScriptedDaemon& daemon = daemons.front();
        const int status = daemon->wait_exit(60000);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1) << status;
        const std::vector<std::string> reports = daemon.evidence("cvdump.json");
        ASSERT_EQ(reports.size(), 1u);
        EXPECT_THAT(reports[0],
                    StartsWith(std::string(R"({ "signal": ")") + c.description + R"(", "time": )"));
        EXPECT_THAT(reports[0], HasSubstr(R"("engine": { "mode": "userspace", "state": "activated", )"
                                          R"("version": {"version":"scripted"})"));
        EXPECT_THAT(reports[0], HasSubstr(R"("logfile": ")" + daemon->log_path() + R"(", "backtrace":")"));
        EXPECT_THAT(reports[0], HasSubstr(c.report));
        // Resolving has a limit of time. The innermost frame is printed last.
        if (daemon->log().find("\n#0 ") != std::string::npos) {
            EXPECT_THAT(daemon->log(), HasSubstr(c.log));
        }
        EXPECT_THAT(daemon->log(), Not(HasSubstr("Object \"\"")));
        EXPECT_THAT(reports[0], EndsWith("\n\"}"));
        EXPECT_THAT(daemon->log(), HasSubstr(std::string("Printing stack trace due to received signal '") +
                                             c.description + "'"));
        EXPECT_THAT(daemon->log(), HasSubstr(std::string("Terminated by signal [") + c.description + "]"));
        daemons.pop_front();
    }
}

TEST(Signals, AStackIsPrintedOnRequestAndTheServerGoesOn) {
    ScriptedDaemon daemon;
    const std::vector<pid_t> children = descendants(daemon->pid());
    ASSERT_EQ(children.size(), 1u);
    kill(children[0], SIGUSR2);
    kill(children[0], SIGPIPE);
    EXPECT_TRUE(daemon->wait_for_log("Printing stack trace due to received signal 'ASSERT'"));
    EXPECT_TRUE(daemon->wait_for_log("Stack trace (most recent call last)"));
    EXPECT_EQ(daemon->result("status")["state"], "activated");
    EXPECT_EQ(daemon->stop(), 0);
}

TEST(Signals, AnOrderlyStopLeavesItsCauseAndNoHalfOfALongPath) {
    const TempDir dir;
    const std::string too_long(87, 'x');
    const struct {
        bool by_request;
        const char* cause;
        std::string engine;
        std::string path;
    } cases[] = {
        {true, "server received 'shutdown' request", dir.file("engine"),
         "cp lib path: " + dir.file("engine")},
        {false, "received signal SIGTERM", dir.file(too_long), "cp lib path: "},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.cause);
        fs::create_directory_symlink(SCRIPTED_ENGINE_DIR, c.engine);
        ScriptedDaemon daemon({}, c.engine);
        if (c.by_request)
            daemon->result("shutdown");
        else
            daemon->signal(SIGTERM);
        EXPECT_EQ(daemon->wait_exit(), 0);
        EXPECT_THAT(daemon->log(), HasSubstr(std::string("CP shutdown - cause: ") + c.cause));
        const std::vector<std::string> reports = daemon.evidence("cvdump.json");
        ASSERT_EQ(reports.size(), 1u);
        EXPECT_THAT(reports[0], StartsWith(std::string(R"({ "signal": ")") + c.cause + R"(", "time": )"));
        EXPECT_THAT(reports[0], HasSubstr(R"("state": "activated")"));
        EXPECT_THAT(reports[0], HasSubstr(R"("path": ")" + c.path + R"("})"));
    }
}

TEST(Signals, AHogLeavesOneReportThatTheEventsMethodShows) {
    ScriptedDaemon daemon({"--wd_hog_timeout", "1500"});
    // The engine's pause ends with the first signal, as any wait in the server does.
    daemon->script("delay coffee 900000");
    // The watchdog judges nobody before his first heartbeat.
    usleep(900000);
    daemon.coffee();
    EXPECT_TRUE(daemon->wait_for_log("HOG lasted ", 30000));
    // The parent says so at the next heartbeat, before or after the server has made its report.
    EXPECT_TRUE(daemon->wait_for_log("***Stack trace***", 30000));
    const Json::Value events = daemon->result("events", parse(R"({"type":"hog"})"))["events"];
    ASSERT_EQ(events.size(), 1u) << events;
    EXPECT_EQ(events[0]["type"], "hog");
    EXPECT_EQ(events[0]["engine"]["version"]["version"], "scripted");
    EXPECT_THAT(events[0]["backtrace"].asString(), StartsWith("-HOG DETECTED:\ntime: "));
    EXPECT_THAT(events[0]["backtrace"].asString(), HasSubstr("libcvcp_u.so"));
    EXPECT_EQ(daemon.evidence("cvdump.json").size(), 1u);
    EXPECT_TRUE(daemon.evidence("cv_hog_dump.txt").empty());
    EXPECT_THAT(daemon->log(), HasSubstr("HOG data saved to: "));
    EXPECT_EQ(daemon->stop(), 0);
}

}  // namespace
}  // namespace test
