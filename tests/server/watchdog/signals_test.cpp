// What signals leave behind: the report of one that ends the server, and the reports of hogs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <limits>
#include <memory>
#include <set>
#include <vector>

#include "infra/corvo_scheduler.h"
#include "infra/corvo_version.h"
#include "server/watchdog/corvo_hog_reporter.h"
#include "server/watchdog/corvo_server_sig.h"
#include "server/watchdog/signal_trap.h"
#include "support/capture_logger.h"
#include "support/client.h"
#include "support/temp_dir.h"

namespace test {
namespace {

namespace fs = std::filesystem;
using corvo::Version;
using namespace corvo::server;
using ::testing::Contains;
using ::testing::Each;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::ResultOf;
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

TEST(Info, ARecordStopsAtTheFirstPieceThatDoesNotFitAndTellsWhatItUsed) {
    InfoEngine engine;
    const std::string full = R"({ "mode": "", "state": "not loaded"})";
    for (unsigned size : {0u, 11u, 13u, static_cast<unsigned>(full.size())}) {
        unsigned char buf[100] = "before:";
        const unsigned used = engine.dump_json(buf, size);
        const std::string text = reinterpret_cast<char*>(buf);
        EXPECT_LE(used, size);
        EXPECT_EQ(used == full.size(), size == full.size());
        EXPECT_EQ(text.size(), 7 + used);
        EXPECT_THAT("before:" + full, StartsWith(text));
    }
    EXPECT_STREQ(InfoEngine::eng_state_to_str(3), "activated (attached)");
    EXPECT_STREQ(InfoEngine::eng_state_to_str(4), "unknown state");
}

/** The server's handler takes its signals and writes into a folder of the test. */
class SigReport : public testing::Test {
 public:
    SigReport() {
        get_sig_handler()->init((m_dir.path() + "/").c_str(), m_dir.file("log"));
        SigHandler::register_child_signals();
    }
    ~SigReport() override { SigHandler::unregister_child_sig(); }

    std::string report() const { return read_file(m_dir.file("cvdump.json")); }
    static struct sigaction action_of(int signum) {
        struct sigaction action {};
        sigaction(signum, nullptr, &action);
        return action;
    }

    TempDir m_dir;
};

// tests/process/signals_test.py reads the reports of a real server.
TEST_F(SigReport, IsWrittenWithoutHeapStdioOrLocksAndATextThatIsTooLongCostsOnlyItself) {
    std::string version = Version::g_version;
    if (Version::g_is_optimized) version += " optimized ";
    if (Version::g_sanitizer) version += "sanitized";
    const std::string server_info =
        R"(, "uptime": 0, "version": ")" + version + R"(", "platform": { "machine": " )" +
        get_sig_handler()->machine() + R"(", "release": ")" + get_sig_handler()->release() +
        R"("}, "engine": { "mode": "", "state": "not loaded"}, "process": { "pid": )" +
        std::to_string(getpid()) + R"(}, "logfile": ")" + m_dir.file("log") + R"(", "backtrace":")";
    const std::string too_long(5000, 'x');
    for (const auto& [text, description] :
         {std::pair<const char*, std::string>{nullptr, "Segmentation fault"}, {too_long.c_str(), ""}}) {
        {
            const SignalTrap trap;
            SigHandler::write_sig_report(SIGSEGV, text);
            get_sig_handler()->engine_version();
        }
        EXPECT_THAT(report(), StartsWith(R"({ "signal": ")" + description + R"(", "time": )"));
        EXPECT_THAT(report(), HasSubstr(server_info));
        EXPECT_THAT(report(), HasSubstr("test_watchdog"));  // of the stack
        EXPECT_THAT(report(), EndsWith("\n\"}"));
    }
    EXPECT_THAT(get_sig_handler()->machine(), EndsWith(" @ 32 bit"));
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

TEST_F(SigReport, SignalsBlockEachOtherAndFatalOnesHaveAStackOfTheirOwn) {
    for (int signum : SigHandler::reg_sigs()) {
        SCOPED_TRACE(signum);
        const struct sigaction action = action_of(signum);
        EXPECT_TRUE(action.sa_handler != SIG_IGN && action.sa_handler != SIG_DFL);
        for (int masked : SigHandler::reg_sigs())
            EXPECT_TRUE(sigismember(&action.sa_mask, masked));
        const bool fatal = std::set{SIGSEGV, SIGILL, SIGABRT, SIGFPE, SIGBUS, SIGSYS}.contains(signum);
        // SA_SIGINFO: the handler learns what it has interrupted.
        EXPECT_EQ(action.sa_flags & (SA_SIGINFO | SA_ONSTACK | SA_RESTART | SA_NODEFER | SA_RESETHAND),
                  SA_SIGINFO | (fatal ? SA_ONSTACK : 0));
    }
    stack_t stack{};
    sigaltstack(nullptr, &stack);
    EXPECT_FALSE(stack.ss_flags & SS_DISABLE);
}

TEST_F(SigReport, AStopSignalGivesAllSignalsBack) {
    SigHandler::unregister_child_sig();
    const auto own = [](int) {};
    std::signal(SIGTERM, own);
    SigHandler::register_child_signals();
    errno = EXDEV;
    {
        const SignalTrap trap;
        raise(SIGPIPE);
        raise(SIGTERM);
    }
    EXPECT_EQ(errno, EXDEV);
    EXPECT_EQ(action_of(SIGTERM).sa_handler, +own);
    EXPECT_EQ(action_of(SIGUSR1).sa_handler, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
    SigHandler::register_child_signals();
    EXPECT_EQ(report(), "");
}

class HogReports : public SigReport {
 public:
    /** A signal of the watchdog. */
    static void hog() {
        {
            const SignalTrap trap;
            raise(SIGUSR1);
        }
        EXPECT_EQ(action_of(SIGUSR1).sa_handler, SIG_IGN);
    }
    /** The reports in the stamped directories. */
    std::vector<std::string> saved() const {
        std::vector<std::string> found;
        for (const auto& entry : fs::recursive_directory_iterator(m_dir.path()))
            if (entry.path().filename() == "cvdump.json") found.push_back(read_file(entry.path()));
        return found;
    }

    CaptureLogger m_log{corvo::Logger::DEBUG};
    corvo::Scheduler m_sched;
    std::deque<std::unique_ptr<SignalReport>> m_reports;
    std::string m_dump = m_dir.file("cv_hog_dump.txt");
    HogReporter m_reporter{&m_sched, m_reports, 2, m_dump};
};

TEST_F(HogReports, ADumpThatIsGoneMakesNoReportAndTheNextHogIsSeen) {
    hog();
    fs::remove(m_dump);
    m_sched.step();
    EXPECT_TRUE(m_reports.empty());
    EXPECT_EQ(m_log.count("og dump file couldn't be read (normal in case of long hog)"), 1);
    m_dir.write("cvevents", "in the way of the directory, which costs only the file");
    hog();
    m_sched.step();
    ASSERT_EQ(m_reports.size(), 1u);
    EXPECT_THAT(m_reports[0]->to_json()["backtrace"].asString(), HasSubstr("\nbacktrace: \n"));
    EXPECT_EQ(m_log.count("HOG data saved"), 0);
    EXPECT_TRUE(action_of(SIGUSR1).sa_flags & SA_SIGINFO);
}

TEST_F(HogReports, EachIsOneLineOnDiskAndInMemoryTheOldestMakesRoom) {
    for (const char* dump : {"first\n", "second\n", "third\n"}) {
        m_dir.write("cv_hog_dump.txt", dump);
        std::string out;
        m_reporter.signal_handler(0, "-", out);
    }
    ASSERT_EQ(m_reports.size(), 2u);
    EXPECT_EQ(m_reports[0]->to_json()["backtrace"].asString(), "-second\n");
    EXPECT_EQ(m_reports[1]->to_json()["backtrace"].asString(), "-third\n");
    EXPECT_THAT(saved(), Each(Not(HasSubstr("\n"))));
    EXPECT_THAT(saved(), Contains(ResultOf(parse, m_reports[1]->to_json())));
    EXPECT_EQ(m_log.count("Stack trace requested to be resolved without backtrace"), 3);
    m_reports[0]->dump_info_engine(CorvoDumpInfo::INFO_PLAIN);
    EXPECT_FALSE(m_reports[0]->to_json().isMember("engine")) << "it is no JSON";
}

}  // namespace
}  // namespace test
