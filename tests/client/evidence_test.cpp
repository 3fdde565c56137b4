// What the daemon leaves of crashes and stalls: read as it is written, removed only where it is that.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "client/evidence/evidence_dir.h"
#include "client/evidence/evidence_report.h"
#include "client/failure.h"
#include "client/run_program.h"
#include "support/daemon.h"

namespace brumectl {
namespace {

using test::TempDir;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
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

TEST(EvidenceWord, WhatSomebodyElseHasArrangedIsShownWithoutHarm) {
    const std::string folder = "cv 'events'\x1b[2J", stamp = "2024_01_31_12_00_00";
    const std::string odd =
        R"({"signal":"\u001b[2J","logfile":"/a b","engine":{"path":"\u001b"},"backtrace":""})";
    const struct {
        const char* file;
        std::string content;
        testing::Matcher<std::string> shown;
        int json_status;
    } CASES[] = {
        {"cvdump.json", CRASH.substr(0, 30),
         AllOf(HasSubstr("cause     unknown\n"), HasSubstr("report    can't be read: cvdump.json\n")), 1},
        {"log", "", AllOf(HasSubstr("cause     killed\n"), HasSubstr("report    missing: cvdump.json\n")), 1},
        {"a b\x1b[2J", "", HasSubstr("$'a b\\x1b[2J'  0 B"), 1},
        {"cvdump.json", odd, AllOf(HasSubstr("signal    \\x1b[2J\n"), HasSubstr("'/a b'\n")), 0},
        {"cv_hog_dump.txt", "time: 5\n",
         AllOf(HasSubstr("cause     stall\n"), HasSubstr("report    missing: cvdump.json\n")), 1},
        {"cvdump.json", CRASH,
         AllOf(HasSubstr("cause     crash\n"), HasSubstr("/cv \\'events\\'\\x1b[2J/" + stamp + "'\n")), 0},
        {"cvdump.json", "", HasSubstr("cause     unknown\n"), 1},
    };
    for (const auto& c : CASES) {
        const TempDir outer;
        const std::string dir = outer.file(folder);
        fs::create_directories(dir + "/" + stamp);
        outer.write(folder + "/" + stamp + "/" + c.file, c.content);
        test::expect_step({{"evidence", "show", stamp, "--dir", dir}, 0, c.shown});
        EXPECT_EQ(test::brumectl({"--json", "evidence", "show", stamp, "--dir", dir}).status, c.json_status);
    }
}

TEST(EvidenceWord, TheOldestGoUntilTheLimitsAreKept) {
    const std::string usage = "'--keep' or '--max-size' is missing";
    const struct {
        std::vector<std::string> limits;
        int status;
        std::string kept;  // which of five events, 1 KiB each but the latest, which has 2 KiB
        std::string complaint = "";
    } CASES[] = {
        {{"--max-size", "6K"}, 0, "01234"},
        {{"--max-size", "6143"}, 0, "1234"},
        {{"--max-size", "1G", "--keep", "2"}, 0, "34"},
        {{"--max-size", "3K", "--keep", "4"}, 0, "34"},
        {{"--max-size", "0"}, 0, "4"},
        {{"--keep", "08"}, 0, "01234"},
        {{"--max-size", "0", "--keep", "0"}, 0, ""},
        {{}, 2, "01234", usage},
        {{"--max-size", "2KB"}, 2, "01234", "'--max-size' must be a size such as 500M or 2G, not '2KB'"},
        {{"--max-size", "16777216T"}, 2, "01234", "not '16777216T'"},
        {{"--max-size", "-1"}, 2, "01234", "not '-1'"},
        {{"--max-size", "K"}, 2, "01234", "not 'K'"},
    };
    for (const auto& c : CASES) {
        const TempDir events;
        for (const char event : std::string("01234")) {
            const std::string stamp = std::string("2024_01_31_12_00_0") + event;
            fs::create_directory(events.file(stamp));
            events.write(stamp + "/log", std::string(event == '4' ? 2048 : 1024, '\n'));
        }
        std::vector<std::string> line = {"evidence", "prune", "--dir", events.path()};
        line.insert(line.end(), c.limits.begin(), c.limits.end());
        test::expect_step({line, c.status, testing::_, HasSubstr(c.complaint)});
        std::string kept;
        for (const char event : std::string("01234"))
            if (fs::exists(events.file(std::string("2024_01_31_12_00_0") + event))) kept += event;
        EXPECT_EQ(kept, c.kept) << testing::PrintToString(c.limits);
    }
}

TEST(EvidenceWord, WithoutTheRightItSaysWhichFolderAndThatItTakesRoot) {
    const TempDir outer;
    const std::string dir = outer.file("cvevents");
    chmod(outer.path().c_str(), 0755);
    fs::create_directory(dir);
    const auto denied = HasSubstr("can't open " + dir + ": Permission denied, that takes root\n");
    for (const mode_t mode : {0000, 0444}) {
        chmod(dir.c_str(), mode);
        for (const std::vector<std::string>& words :
             {std::vector<std::string>{"ls"}, {"show"}, {"prune", "--keep", "1"}}) {
            std::vector<std::string> line = {"evidence", "--dir", dir};
            line.insert(line.begin() + 1, words.begin(), words.end());
            test::expect_step({line, 1, "", denied}, {.before_exec = [] {
                                  if (geteuid() == 0 && setuid(65534) != 0) _exit(126);
                              }});
        }
    }
    chmod(dir.c_str(), 0700);
}

TEST(EvidenceWord, AStoppedDaemonsLastReportIsFoundBesideItsLog) {
    test::Daemon daemon({.watchdog = true});
    daemon.result("shutdown");
    daemon.wait_exit();
    const std::string dir = daemon.dir().file("cvevents");
    test::expect_steps({
        {{"evidence", "show", "--dir", dir}, 0, HasSubstr("server received 'shutdown' request")},
        {{"evidence", "prune", "--keep", "0", "--dir", dir}, 0, "0 removed from " + dir + "\n"},
        {{"evidence", "show", "2024_01_31_12_00_00", "--dir", dir}, 1, "", HasSubstr("2024_01_31_12_00_00")},
    });
}

}  // namespace
}  // namespace brumectl
