// What the daemon leaves of crashes and stalls: read as it is written, removed only where it is that.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "client/evidence/evidence_dir.h"
#include "client/evidence/evidence_report.h"
#include "client/failure.h"
#include "support/temp_dir.h"

namespace brumectl {
namespace {

using test::TempDir;
using testing::ElementsAre;
namespace fs = std::filesystem;

const std::string CRASH = R"({ "signal": "Segmentation fault", "time": 1700000000, "uptime": 5, )"
                          R"("version": "1.0", "process": { "pid": 7 }, "logfile": "/l", "backtrace":")"
                          "./brumecpd(_ZN5corvo4stopEi+0x1c)[0x55]\n/lib/li\"b\\c.so(+0x2)[0x7f]\n\"}";

TEST(EvidenceReport, AStackOfRawLinesIsReadWithItsQuotes) {
    const EvidenceReport report = EvidenceReport::from_json_text(CRASH);
    EXPECT_EQ(report.cause, EvidenceReport::CRASH);
    EXPECT_EQ(report.signal, "SIGSEGV");
    EXPECT_EQ(report.time, 1700000000U);
    EXPECT_EQ(report.version, "1.0");
    EXPECT_THAT(report.backtrace,
                ElementsAre("./brumecpd(_ZN5corvo4stopEi+0x1c)[0x55]", "/lib/li\"b\\c.so(+0x2)[0x7f]"));
    EXPECT_EQ(report.json["process"]["pid"], 7);
}

TEST(EvidenceReport, AReportThatWasCutWithinItsStackIsReadSoFar) {
    const size_t stack = CRASH.find("./brumecpd");
    for (size_t size = stack; size < CRASH.size(); ++size)
        EXPECT_EQ(EvidenceReport::from_json_text(CRASH.substr(0, size)).signal, "SIGSEGV") << size;
    for (size_t size = 0; size < stack - 1; ++size)
        EXPECT_EQ(EvidenceReport::from_json_text(CRASH.substr(0, size)).cause, EvidenceReport::NONE) << size;
}

TEST(EvidenceReport, AStallIsToldFromACrashAndAStop) {
    const EvidenceReport stall = EvidenceReport::from_json_text(
        R"({"type":"hog","backtrace":"-HOG DETECTED:\ntime: 12\nbacktrace: \na(f+0x1)[0x2]\n"})");
    EXPECT_EQ(stall.cause, EvidenceReport::STALL);
    EXPECT_EQ(stall.time, 12U);
    EXPECT_EQ(stall.backtrace, std::vector<std::string>{"a(f+0x1)[0x2]"});
    const EvidenceReport stop = EvidenceReport::from_json_text(
        R"({ "signal": "server received 'shutdown' request", "time": 3, "backtrace":""})");
    EXPECT_EQ(stop.cause, EvidenceReport::STOP);
    EXPECT_EQ(stop.signal, "server received 'shutdown' request");
}

TEST(EvidenceReport, FramesAreShownByTheirNames) {
    const std::pair<const char*, const char*> CASES[] = {
        {"./bin/brumecpd(_ZN5corvo4stopEi+0x1c)[0x55]", "corvo::stop(int)+0x1c  brumecpd"},
        {"? /lib/libc.so.6(+0x2724a)[0x7f]", "? (+0x2724a)  libc.so.6"},
        {"a(_Zbroken+0x1)[0x2]", "_Zbroken+0x1  a"},
        {"[0x7f]", "[0x7f]"},
        {"a)(", "a)("},
    };
    for (const auto& [frame, text] : CASES)
        EXPECT_EQ(readable_frame(frame), text);
}

TEST(EvidenceDir, OnlyWhatHasAnEventsShapeIsRemovedAndNothingIsReadThroughALink) {
    const TempDir events;
    for (const char* file :
         {"2024_01_31_12_00_00/cvdump.json", "2024_01_31_12_00_00/log", "2024_01_31_12_00_00/cvconfig.json",
          "2024_01_31_12_00_01/log", "2024_01_31_12_00_02/log", "2024_01_31_12_00_02/notes",
          "2024_01_31_12_00_03/log", "2024_01_31_12_00_03/deeper/log", "2024_01_31_12_00_05/log",
          "2024_01_31/log", "outside/precious"}) {
        fs::create_directories(fs::path(events.file(file)).parent_path());
        events.write(file, CRASH);
    }
    fs::create_directory_symlink(events.file("outside"), events.file("2024_01_31_12_00_04"));
    fs::create_symlink(events.file("outside/precious"), events.file("2024_01_31_12_00_05/cvdump.json"));

    const EvidenceDir dir(events.path());
    ASSERT_EQ(dir.stamps().size(), 5U);
    EXPECT_EQ(dir.find("2024_01_31_12_00_00").report.cause, EvidenceReport::CRASH);
    EXPECT_EQ(dir.find("2024_01_31_12_00_05").report.cause, EvidenceReport::UNKNOWN);
    EXPECT_THROW(dir.find("2024_01_31_12_00_04"), Failure);
    EXPECT_THROW(dir.find("../outside"), Failure);
    for (const char* stamp : {"2024_01_31_12_00_00", "2024_01_31_12_00_01"}) {
        dir.remove(stamp);
        EXPECT_FALSE(fs::exists(events.file(stamp)));
    }
    for (const char* name : {"2024_01_31_12_00_02", "2024_01_31_12_00_03", "2024_01_31_12_00_04",
                             "2024_01_31_12_00_05", "2024_01_31", "outside"}) {
        EXPECT_THROW(dir.remove(name), Failure) << name;
        EXPECT_TRUE(fs::exists(events.file(name))) << name;
    }
    EXPECT_TRUE(fs::exists(events.file("outside/precious")));
    EXPECT_TRUE(fs::exists(events.file("2024_01_31_12_00_03/log")));
}

}  // namespace
}  // namespace brumectl
