#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <deque>
#include <filesystem>
#include <vector>

#include "infra/corvo_scheduler.h"
#include "infra/corvo_version.h"
#include "infra/json/corvo_json.h"
#include "server/watchdog/corvo_hog_reporter.h"
#include "server/watchdog/sig_fixture.h"
#include "server/watchdog/signal_trap.h"
#include "support/capture_logger.h"

namespace test {
namespace {

namespace fs = std::filesystem;
using corvo::server::HogReporter;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

class HogReports : public SigTest {
 public:
    /** A signal of the watchdog, and the main loop's next turn. */
    void hog() {
        {
            const SignalTrap trap;
            raise(SIGUSR1);
        }
        EXPECT_EQ(action_of(SIGUSR1).sa_handler, SIG_IGN);
    }
    void turn() { m_sched.step(); }
    /** The reports in the stamped directories. */
    std::vector<std::string> saved() const {
        std::vector<std::string> found;
        const fs::path events = m_dir.file("cvevents");
        if (!fs::exists(events)) return found;
        for (const auto& entry : fs::recursive_directory_iterator(events))
            if (entry.path().filename() == "cvdump.json") found.push_back(read_file(entry.path()));
        return found;
    }

    CaptureLogger m_log{corvo::Logger::DEBUG};
    corvo::Scheduler m_sched;
    RegisteredSignals m_registered;
    std::deque<std::unique_ptr<corvo::server::SignalReport>> m_reports;
    std::string m_dump = m_dir.file("cv_hog_dump.txt");
    HogReporter m_reporter{&m_sched, m_reports, 2, m_dump};
};

TEST_F(HogReports, OneHogLeavesOneReportInMemoryOnDiskAndInTheLog) {
    hog();
    EXPECT_THAT(read_file(m_dump), StartsWith("HOG DETECTED:\ntime: "));
    raise(SIGUSR1);  // the watchdog repeats itself
    turn();
    turn();
    ASSERT_EQ(m_reports.size(), 1u);
    const Json::Value report = m_reports[0]->to_json();
    EXPECT_THAT(report["backtrace"].asString(), HasSubstr("\nbacktrace: \n"));

    ASSERT_EQ(saved().size(), 1u);
    EXPECT_THAT(saved()[0], Not(HasSubstr("\n")));
    Json::Value on_disk;
    ASSERT_TRUE(corvo::json::parse(saved()[0], on_disk));
    EXPECT_EQ(on_disk, report);

    EXPECT_FALSE(fs::exists(m_dump));
    EXPECT_EQ(m_log.count("***Stack trace***\n"), corvo::Version::g_have_dw);
    EXPECT_EQ(m_log.count("HOG data saved to: " + m_dir.file("cvevents/")), 1);
    EXPECT_TRUE(is_taken(SIGUSR1));
}

TEST_F(HogReports, ADumpThatIsGoneMakesNoReportAndTheNextHogIsSeen) {
    hog();
    fs::remove(m_dump);
    turn();
    EXPECT_TRUE(m_reports.empty());
    EXPECT_EQ(m_log.count("og dump file couldn't be read (normal in case of long hog)"), 1);
    hog();
    turn();
    EXPECT_EQ(m_reports.size(), 1u);
}

TEST_F(HogReports, TheOldestReportMakesRoom) {
    for (const char* name : {"first", "second", "third"}) {
        m_dir.write("cv_hog_dump.txt", name);
        std::string out;
        m_reporter.signal_handler(0, "-", out);
    }
    ASSERT_EQ(m_reports.size(), 2u);
    EXPECT_EQ(m_reports[0]->to_json()["backtrace"].asString(), "-second");
    EXPECT_EQ(m_reports[1]->to_json()["backtrace"].asString(), "-third");
    EXPECT_EQ(m_log.count("Stack trace requested to be resolved without backtrace"), 3);
}

TEST_F(HogReports, ADirectoryThatCannotBeMadeCostsOnlyTheFile) {
    m_dir.write("cvevents", "in the way");
    hog();
    turn();
    EXPECT_EQ(m_reports.size(), 1u);
    EXPECT_EQ(m_log.count("HOG data saved"), 0);
}

}  // namespace
}  // namespace test
