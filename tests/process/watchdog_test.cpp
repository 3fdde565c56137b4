// The supervising parent and its server: killed, stopped, flooded, orphaned.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include "support/daemon.h"
#include "utils/unique_fd.h"

namespace test {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;
namespace fs = std::filesystem;

const std::vector<std::string> SHORT_TIMEOUTS = {
    "--wd_hog_timeout", "200", "--wd_kill_timeout", "600", "-v", "debug"};

/** A sanitizer slows the server down so much that short time-outs would judge the machine. */
constexpr int PATIENCE = SANITIZED ? 3 : 1;

std::vector<std::string> with(std::vector<std::string> args, const std::vector<std::string>& more) {
    args.insert(args.end(), more.begin(), more.end());
    return args;
}

DaemonSetup supervised(std::vector<std::string> args = {}) {
    return {.args = std::move(args), .watchdog = true};
}

/** With an engine that does what `script` says, from its first tick on. */
DaemonSetup with_engine(const std::string& script, const std::vector<std::string>& args = {}) {
    DaemonSetup setup = supervised(with({"-a"}, args));
    setup.engine_dir = SCRIPTED_ENGINE_DIR;
    setup.files = {{"script", script}};
    return setup;
}

/** The server process that `parent` watches, once it is another one than `old`. */
pid_t server_of(pid_t parent, pid_t old = -1) {
    pid_t found = -1;
    eventually([&] {
        for (const pid_t pid : descendants(parent))
            if (pid != old) found = pid;
        return found > 0;
    });
    return found;
}

/** A second write end of the pipe that is the server's stderr. */
corvo::UniqueFd stderr_of(pid_t server) {
    signal(SIGPIPE, SIG_IGN);
    const std::string path = "/proc/" + std::to_string(server) + "/fd/2";
    return corvo::UniqueFd(open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
}

/** The directories of termination events beside the log. */
std::vector<std::string> events_of(const std::string& log_path) {
    std::vector<std::string> found;
    for (const auto& entry : fs::directory_iterator(fs::path(log_path).parent_path() / "cvevents"))
        if (entry.is_directory()) found.push_back(entry.path());
    return found;
}

std::vector<std::string> names_in(const std::string& dir) {
    std::vector<std::string> found;
    for (const auto& entry : fs::directory_iterator(dir))
        found.push_back(entry.path().filename());
    std::sort(found.begin(), found.end());
    return found;
}

TEST(Watchdog, AnAbnormalEndIsReportedAndItsEvidenceGathered) {
    const struct {
        int signum;
        const char* name;
        std::vector<std::string> gathered;
    } cases[] = {
        {SIGKILL, "Killed", {"cvconfig.json", "log"}},
        {SIGSEGV, "Segmentation fault", {"cvconfig.json", "cvdump.json", "log"}},
    };
    for (const auto& c : cases) {
        if (SANITIZED && c.signum == SIGSEGV) continue;  // the sanitizer turns that into an exit
        SCOPED_TRACE(c.name);
        DaemonSetup setup = supervised({"-c", "conf"});
        setup.files = {{"conf", "[]"}};
        Daemon daemon(setup);
        kill(server_of(daemon.pid()), c.signum);
        EXPECT_EQ(WEXITSTATUS(daemon.wait_exit()), 1);
        EXPECT_THAT(daemon.log(), HasSubstr("Restarting brumecpd is disabled"));
        const std::vector<std::string> events = events_of(daemon.log_path());
        ASSERT_THAT(events, SizeIs(1));
        EXPECT_EQ(names_in(events[0]), c.gathered);
        EXPECT_EQ(names_in(fs::path(events[0]).parent_path()).size(), 2U) << "itself and a dummy";
        EXPECT_EQ(fs::status(events[0]).permissions() & fs::perms(07037), fs::perms::none);
        const std::string log = read_file(events[0] + "/log");
        EXPECT_THAT(log, HasSubstr("    PROCESS TERMINATION OCCURRED    "));
        EXPECT_THAT(log, HasSubstr("Exit code: 0"));
        EXPECT_THAT(log, HasSubstr("Terminated by signal [" + std::string(c.name) + "]"));
    }
}

TEST(Watchdog, AStopOfTheParentStopsTheServerAtAnyMoment) {
    for (const bool early : {false, true})
        for (const int signum : {SIGTERM, SIGINT}) {
            SCOPED_TRACE(std::to_string(signum) + (early ? " early" : ""));
            DaemonSetup setup = supervised();
            setup.wait_ready = !early;
            Daemon daemon(setup);
            ASSERT_TRUE(daemon.wait_for_log("Launched"));
            daemon.signal(signum);
            EXPECT_EQ(daemon.wait_exit(8000 * PATIENCE), 0) << "a stop that got lost costs ten seconds";
            const std::string name = signum == SIGTERM ? "SIGTERM" : "SIGINT";
            EXPECT_THAT(daemon.log(), HasSubstr("Stopped by " + name + ", passing to child"));
            EXPECT_THAT(daemon.log(), HasSubstr("CP shutdown - cause: received signal " + name));
            EXPECT_THAT(daemon.log(), HasSubstr("Process terminated normally"));
            EXPECT_THAT(daemon.log(), Not(HasSubstr("TERMINATION OCCURRED")));
            EXPECT_THAT(events_of(daemon.log_path()), IsEmpty());
        }
}

TEST(Watchdog, ASilentServerIsAskedThenAbortedAndNeverCountsAsNormal) {
    Daemon daemon(supervised(SHORT_TIMEOUTS));
    const pid_t server = server_of(daemon.pid());
    daemon.signal(SIGUSR2);  // the first heartbeat: without one there's no judgement
    kill(server, SIGSTOP);
    ASSERT_TRUE(daemon.wait_for_log("Aborting child (state T)"));
    EXPECT_THAT(daemon.log(), HasSubstr("Sending HOG signal to child (state T)"));
    kill(server, SIGCONT);
    EXPECT_EQ(WEXITSTATUS(daemon.wait_exit()), 1);
    EXPECT_THAT(daemon.log(), HasSubstr("Process killed by watchdog since not responding"));
    EXPECT_THAT(daemon.log(), HasSubstr("Terminated by signal [Aborted]"));
    const std::vector<std::string> events = events_of(daemon.log_path());
    EXPECT_FALSE(events.empty());
    EXPECT_TRUE(fs::exists(events.back() + "/cvdump.json"));
}

TEST(Watchdog, WithoutHogDetectionASilentServerIsLeftAlone) {
    Daemon daemon(supervised(with(SHORT_TIMEOUTS, {"--wd_no_hog"})));
    const pid_t server = server_of(daemon.pid());
    kill(server, SIGSTOP);
    usleep(800000);
    kill(server, SIGCONT);
    EXPECT_TRUE(daemon.answers());
    EXPECT_THAT(daemon.log(), HasSubstr("Hog detection disabled"));
    EXPECT_THAT(daemon.log(), Not(HasSubstr("No heartbeat for")));
    EXPECT_EQ(daemon.stop(), 0);
}

TEST(Watchdog, AServerThatExitsIsReplacedAfterAGrowingDelay) {
    DaemonSetup setup = with_engine("crash tick exit 3\n", {"--wd_reload"});
    setup.wait_ready = false;
    Daemon daemon(setup);
    ASSERT_TRUE(daemon.wait_for_log("Restarting brumecpd in 2 seconds", 10000 * PATIENCE));
    const std::string log = daemon.log();
    const size_t first = log.find("Restarting brumecpd\n");
    ASSERT_NE(first, std::string::npos);
    EXPECT_LT(log.find("Exit code: 3"), first);
    EXPECT_GT(log.rfind("Exit code: 3"), first);
    daemon.script("");
    EXPECT_TRUE(daemon.answers());
    EXPECT_EQ(daemon.result("status")["state"], "activated");
    EXPECT_EQ(daemon.stop(), 0);
}

TEST(Watchdog, WithoutReloadTheServersExitCodeIsTheParents) {
    DaemonSetup setup = with_engine("crash tick exit 3\n");
    setup.wait_ready = false;
    Daemon daemon(setup);
    EXPECT_EQ(WEXITSTATUS(daemon.wait_exit()), 3);
    EXPECT_THAT(events_of(daemon.log_path()), SizeIs(1));
}

TEST(Watchdog, ManyEndsInARowLeaveNothingBehind) {
    Daemon daemon(supervised({"--wd_reload", "--wd_reload_backoff_multiplier", "1"}));
    pid_t server = server_of(daemon.pid());
    const size_t parents = open_descriptors(daemon.pid());
    const size_t servers = open_descriptors(server);
    // Some at once, before the server has even begun to serve.
    const int ends[] = {SIGKILL, SIGKILL, SIGSEGV, SIGKILL, SIGABRT};
    for (const int signum : ends) {
        kill(server, signum);
        const pid_t next = server_of(daemon.pid(), server);
        ASSERT_GT(next, 0) << daemon.log();
        server = next;
    }
    EXPECT_TRUE(daemon.answers());
    EXPECT_THAT(descendants(daemon.pid()), SizeIs(1));
    EXPECT_EQ(open_descriptors(daemon.pid()), parents);
    EXPECT_EQ(open_descriptors(server), servers);
    EXPECT_EQ(daemon.stop(), 0);
}

TEST(Watchdog, AFloodOfStderrHoldsUpNeitherJudgementNorEnd) {
    Daemon daemon(supervised({"--wd_hog_timeout", "200", "--wd_kill_timeout", "3000"}));
    const pid_t server = server_of(daemon.pid());
    // Someone else who holds the pipe and goes on writing when the server is gone.
    const corvo::UniqueFd pipe = stderr_of(server);
    ASSERT_TRUE(pipe);
    const std::string text(4096, 'x');
    const auto flood = [&](int rounds) {
        for (int i = 0; i < rounds && daemon.running(); ++i) {
            while (write(pipe.get(), text.data(), text.size()) > 0) {
            }
            usleep(5000);
        }
    };
    flood(100);
    EXPECT_THAT(daemon.log(), Not(HasSubstr("Aborting child")));
    EXPECT_TRUE(daemon.answers());
    kill(server, SIGKILL);
    flood(1000);
    EXPECT_EQ(WEXITSTATUS(daemon.wait_exit(1)), 1) << "the end was seen during the flood";
}

TEST(Watchdog, WhenTheParentIsKilledTheServerGoesOnAlone) {
    for (const bool hogs : {true, false}) {
        const std::vector<std::string> args = {"--wd_hog_timeout", "200", "--wd_no_hog"};
        Daemon daemon(supervised({args.begin(), args.end() - hogs}));
        const pid_t server = server_of(daemon.pid());
        daemon.signal(SIGKILL);
        daemon.wait_exit();
        EXPECT_TRUE(!hogs || daemon.wait_for_log("Parent PID has changed, heartbeats won't be sent"));
        // Printing must fail before the pipe that nobody empties is full.
        const corvo::UniqueFd pipe = stderr_of(server);
        EXPECT_TRUE(eventually([&] { return write(pipe.get(), "x", 1) < 0; }));
        EXPECT_EQ(errno, EPIPE);
        EXPECT_TRUE(daemon.answers());
        kill(server, SIGTERM);
        EXPECT_TRUE(eventually([&] { return !is_running(server); })) << (kill(server, SIGKILL), "");
    }
}

TEST(Watchdog, ALogThatCannotBeWrittenCostsLinesOnly) {
    const TempDir elsewhere;
    const std::string logs = elsewhere.file("logs");
    const std::string full = elsewhere.file("full");
    fs::create_directory(logs);
    fs::create_symlink("/dev/full", full);
    for (const std::string& log : {logs + "/log", full, std::string("/nowhere/log")}) {
        SCOPED_TRACE(log);
        DaemonSetup setup = supervised({"--wd_reload"});
        setup.log_file = log;
        Daemon daemon(setup);
        fs::remove_all(logs);
        const pid_t server = server_of(daemon.pid());
        kill(server, SIGKILL);
        EXPECT_GT(server_of(daemon.pid(), server), 0);
        EXPECT_TRUE(daemon.answers());
        EXPECT_EQ(daemon.stop(), 0);
        EXPECT_EQ(daemon.out().find("Creating dir for events '") != std::string::npos, log != full);
    }
}

TEST(Watchdog, ADaemonsServerPrintsIntoThePipeAndNowhereElse) {
    DaemonSetup setup = supervised({"-d"});
    setup.wait_ready = false;
    Daemon starter(setup);
    EXPECT_EQ(starter.wait_exit(), 0);
    ASSERT_TRUE(starter.answers());
    const pid_t server = starter.result("status")["pid"].asInt();
    const std::string fds = "/proc/" + std::to_string(server) + "/fd/";
    EXPECT_THAT(fs::read_symlink(fds + "2").string(), HasSubstr("pipe:"));
    EXPECT_FALSE(fs::exists(fds + "0"));
    EXPECT_FALSE(fs::exists(fds + "1"));
    EXPECT_EQ(write(stderr_of(server).get(), "hello pipe", 10), 10);
    EXPECT_TRUE(starter.wait_for_log("[WD    ][ERROR] - Hello pipe"));
    kill(server, SIGKILL);
    ASSERT_TRUE(starter.wait_for_log("Restarting brumecpd is disabled"));
    const std::vector<std::string> events = events_of(starter.log_path());
    ASSERT_THAT(events, SizeIs(1));
    const std::string copy = read_file(events[0] + "/log");
    EXPECT_EQ(starter.log().substr(0, copy.size()), copy);
}

}  // namespace
}  // namespace test
