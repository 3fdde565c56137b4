#include "server/watchdog/corvo_signal_report.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <limits>
#include <set>

#include "infra/corvo_version.h"
#include "server/watchdog/corvo_wd_server.h"
#include "server/watchdog/sig_fixture.h"
#include "server/watchdog/signal_trap.h"

namespace test {
namespace {

using corvo::Version;
using namespace corvo::server;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

TEST(SignalTrap, TheTrapOfTheseTestsBites) {
    if (Version::g_sanitizer) GTEST_SKIP() << "a sanitizer has its own heap";
    EXPECT_DEATH(
        {
            const SignalTrap trap;
            void* volatile p = malloc(1);
            free(p);
        },
        "not signal-safe: malloc");
}

TEST(SigText, NumbersOfAllSizesAreWrittenOut) {
    for (int64_t number : {int64_t{0}, int64_t{-1}, int64_t{1700000000}, std::numeric_limits<int64_t>::min(),
                           std::numeric_limits<int64_t>::max()})
        EXPECT_EQ(DecimalText(number).c_str(), std::to_string(number));
}

TEST(SigText, WhatDoesNotFitIsLeftOutAsAWhole) {
    char buf[8] = "";
    unsigned left = 5;
    EXPECT_TRUE(add_to_buf(buf, "abc", left));
    EXPECT_FALSE(add_to_buf(buf, "def", left));
    EXPECT_TRUE(add_to_buf(buf, "gh", left));
    EXPECT_STREQ(buf, "abcgh");
    EXPECT_EQ(left, 0u);
}

TEST(Info, ARecordStopsAtTheFirstPieceThatDoesNotFitAndTellsWhatItUsed) {
    InfoEngine engine;
    const std::string full = R"({ "mode": "", "state": "not loaded"})";
    for (unsigned size : {0u, 11u, 13u, static_cast<unsigned>(full.size())}) {
        unsigned char buf[100] = "before:";
        const unsigned used = engine.dump_json(buf, size);
        const std::string text = reinterpret_cast<char*>(buf);
        EXPECT_LE(used, size);
        EXPECT_EQ(text.size(), 7 + used);
        EXPECT_THAT("before:" + full, StartsWith(text));
    }
    EXPECT_STREQ(InfoEngine::eng_state_to_str(3), "activated (attached)");
    EXPECT_STREQ(InfoEngine::eng_state_to_str(4), "unknown state");
}

class SigReport : public SigTest {
 public:
    static std::string server_info() {
        std::string version = Version::g_version;
        if (Version::g_is_optimized) version += " optimized ";
        if (Version::g_sanitizer) version += "sanitized";
        return R"(, "uptime": 0, "version": ")" + version + R"(", "platform": { "machine": " )" +
               get_sig_handler()->machine() + R"(", "release": ")" + get_sig_handler()->release() +
               R"("}, "engine": { "mode": "", "state": "not loaded"}, "process": { "pid": )" +
               std::to_string(getpid()) + R"(}, "logfile": ")" + SigHandler::log_file() +
               R"(", "backtrace":")";
    }
};

TEST_F(SigReport, IsWrittenWithoutHeapStdioOrLocks) {
    {
        const SignalTrap trap;
        SigHandler::write_sig_report(SIGSEGV, nullptr);
    }
    const std::string text = report();
    EXPECT_THAT(text, StartsWith(R"({ "signal": "Segmentation fault", "time": )"));
    EXPECT_THAT(text, HasSubstr(server_info()));
    EXPECT_THAT(text, HasSubstr("test_watchdog"));  // of the stack
    EXPECT_THAT(text, EndsWith("\n\"}"));
    EXPECT_THAT(get_sig_handler()->machine(), EndsWith(" @ 32 bit"));
}

TEST_F(SigReport, ATextThatIsTooLongCostsOnlyItself) {
    const std::string text(5000, 'x');
    {
        const SignalTrap trap;
        SigHandler::write_sig_report(0, text.c_str());
    }
    EXPECT_THAT(report(), StartsWith(R"({ "signal": "", "time": )"));
    EXPECT_THAT(report(), HasSubstr(server_info()));
}

TEST_F(SigReport, ThePlainFormatIsAFileOfItsOwn) {
    char buf[4096] = "";
    SigHandler::write_sig_report(buf, sizeof buf, CorvoDumpInfo::INFO_PLAIN, SIGBUS, nullptr);
    const std::string text = read_file(m_dir.file("cvdump.txt"));
    EXPECT_THAT(text, StartsWith("signal: Bus errortime: "));
    EXPECT_THAT(text, HasSubstr("uptime (seconds): 0\nversion: "));
    EXPECT_THAT(text, HasSubstr("mode: ; state: not loaded\npid: " + std::to_string(getpid()) +
                                "\nlogfile: " + m_dir.file("log") + "\nbacktrace:\n"));
}

class ActiveServer : public WatchedServer {
 public:
    void stop(int) const override {}
    int uptime() const override { return 61; }
    const char* log_file() const override { return "/its/log"; }
    bool engine_facts(EngineFacts& facts) const override {
        facts = {.mode = "userspace", .path = "../lib", .state = EngineFacts::ACTIVATED};
        return true;
    }
    void follow_engine() const override { get_sig_handler()->set_engine_version("{\"build\":7}"); }
    void unfollow_engine() const override { get_sig_handler()->set_engine_version(""); }
    const char* default_config_file() const override { return ""; }
};

TEST_F(SigReport, TellsWhatTheServerTellsOfItselfAndOfAnActiveEngine) {
    const ActiveServer server;
    get_sig_handler()->set_server(&server);
    SigHandler::register_state_change_cb();
    {
        const SignalTrap trap;
        SigHandler::write_sig_report(SIGSEGV, nullptr);
    }
    SigHandler::unregister_state_change_cb();
    get_sig_handler()->set_server(nullptr);
    EXPECT_THAT(report(), AllOf(HasSubstr(R"("uptime": 61, )"), HasSubstr(R"("logfile": "/its/log")"),
                                HasSubstr(R"("engine": { "mode": "userspace", "state": "activated", )"
                                          R"("version": {"build":7}, "path": "cp lib path: ../lib"})")));
}

TEST_F(SigReport, AMissingDirectoryIsOneLineOnStandardError) {
    get_sig_handler()->init("/nowhere/", "");
    testing::internal::CaptureStderr();
    SigHandler::write_sig_report(SIGSEGV, nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Couldn't open signal dump file\n");
}

TEST_F(SigReport, InMemoryItHoldsWhatIsJsonAndLeavesOutTheRest) {
    SignalReport whole;
    const Json::Value all = whole.to_json();
    EXPECT_EQ(all["process"]["pid"].asInt(), getpid());
    EXPECT_EQ(all["engine"]["state"].asString(), "not loaded");
    EXPECT_THAT(all["version"].asString(), StartsWith(Version::g_version));
    EXPECT_EQ(all["platform"]["release"].asString(), get_sig_handler()->release());

    whole.dump_info_engine(CorvoDumpInfo::INFO_PLAIN);
    EXPECT_FALSE(whole.to_json().isMember("engine"));
}

TEST_F(SigReport, SignalsBlockEachOtherAndFatalOnesHaveAStackOfTheirOwn) {
    const RegisteredSignals registered;
    for (int signum : SigHandler::reg_sigs()) {
        SCOPED_TRACE(signum);
        const struct sigaction action = action_of(signum);
        EXPECT_TRUE(is_taken(signum));
        for (int masked : SigHandler::reg_sigs())
            EXPECT_TRUE(sigismember(&action.sa_mask, masked));
        const bool fatal = std::set{SIGSEGV, SIGILL, SIGABRT, SIGFPE, SIGBUS, SIGSYS}.contains(signum);
        EXPECT_EQ(action.sa_flags & (SA_ONSTACK | SA_RESTART | SA_NODEFER | SA_RESETHAND),
                  fatal ? SA_ONSTACK : 0);
    }
    stack_t stack{};
    sigaltstack(nullptr, &stack);
    EXPECT_FALSE(stack.ss_flags & SS_DISABLE);
}

TEST_F(SigReport, AStopSignalGivesAllSignalsBack) {
    struct sigaction own {
    }, before{};
    own.sa_handler = [](int) {};
    sigaction(SIGTERM, &own, &before);
    {
        const RegisteredSignals registered;
        errno = EXDEV;
        {
            const SignalTrap trap;
            raise(SIGPIPE);
            raise(SIGTERM);
        }
        EXPECT_EQ(errno, EXDEV);
        EXPECT_EQ(action_of(SIGTERM).sa_handler, own.sa_handler);
        EXPECT_EQ(action_of(SIGUSR1).sa_handler, SIG_DFL);
    }
    sigaction(SIGTERM, &before, nullptr);
    EXPECT_EQ(report(), "");
}

}  // namespace
}  // namespace test
