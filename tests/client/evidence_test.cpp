// What the daemon leaves of crashes and stalls: read as it is written, removed only where it is that.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "client/evidence/evidence_dir.h"
#include "client/evidence/evidence_report.h"
#include "client/failure.h"
#include "client/run_program.h"
#include "infra/corvo_json.h"
#include "support/client.h"
#include "support/daemon.h"

namespace brumectl {
namespace {

using test::TempDir;
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
    ASSERT_EQ(report.backtrace.size(), 2U);
    EXPECT_EQ(report.backtrace[1], "/lib/li\"b\\c.so(+0x2)[0x7f]");
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
    const struct {
        const char* frame;
        const char* text;
    } cases[] = {
        {"./bin/brumecpd(_ZN5corvo4stopEi+0x1c)[0x55]", "corvo::stop(int)+0x1c  brumecpd"},
        {"/lib/libc.so.6(+0x2724a)[0x7f]", "(+0x2724a)  libc.so.6"},
        {"a(_Zbroken+0x1)[0x2]", "_Zbroken+0x1  a"},
        {"[0x7f]", "[0x7f]"},
        {"a)(", "a)("},
    };
    for (const auto& c : cases)
        EXPECT_EQ(readable_frame(c.frame), c.text);
}

/** An events directory with an event of each kind. */
class EvidenceFolder : public ::testing::Test {
 protected:
    EvidenceFolder() {
        add("2024_01_31_12_00_00", {"cvdump.json", "log", "cvconfig.json"});
        add("2024_01_31_12_00_01", {"log"});
        add("2024_01_31_12_00_02", {"log", "notes"});
        add("2024_01_31_12_00_03", {"log"});
        fs::create_directory(m_dir.file("2024_01_31_12_00_03/deeper"));
        add("outside", {"precious"});
        fs::create_directory_symlink(m_dir.file("outside"), m_dir.file("2024_01_31_12_00_04"));
        add("2024_01_31_12_00_05", {"log"});
        fs::create_symlink(m_dir.file("outside/precious"), m_dir.file("2024_01_31_12_00_05/cvdump.json"));
        add("2024_01_31", {"log"});
    }
    void add(const std::string& folder, const std::vector<std::string>& files) const {
        fs::create_directory(m_dir.file(folder));
        for (const std::string& file : files)
            m_dir.write(folder + "/" + file, CRASH);
    }

    TempDir m_dir;
};

TEST_F(EvidenceFolder, OnlyWhatHasAnEventsShapeIsRemoved) {
    const EvidenceDir dir(m_dir.path());
    ASSERT_EQ(dir.stamps().size(), 5U);
    for (const char* stamp : {"2024_01_31_12_00_00", "2024_01_31_12_00_01"}) {
        dir.remove(stamp);
        EXPECT_FALSE(fs::exists(m_dir.file(stamp)));
    }
    for (const char* name : {"2024_01_31_12_00_02", "2024_01_31_12_00_03", "2024_01_31_12_00_04",
                             "2024_01_31_12_00_05", "2024_01_31", "outside"}) {
        EXPECT_THROW(dir.remove(name), Failure) << name;
        EXPECT_TRUE(fs::exists(m_dir.file(name))) << name;
    }
    EXPECT_TRUE(fs::exists(m_dir.file("outside/precious")));
    EXPECT_TRUE(fs::exists(m_dir.file("2024_01_31_12_00_03/log")));
}

TEST_F(EvidenceFolder, NothingIsReadThroughALink) {
    const EvidenceDir dir(m_dir.path());
    EXPECT_EQ(dir.find("2024_01_31_12_00_00").report.cause, EvidenceReport::CRASH);
    EXPECT_EQ(dir.find("2024_01_31_12_00_05").report.cause, EvidenceReport::UNKNOWN);
    EXPECT_THROW(dir.find("2024_01_31_12_00_04"), Failure);
    EXPECT_THROW(dir.find("../outside"), Failure);
}

TEST(EvidenceWord, WhatSomebodyElseHasArrangedIsShownWithoutHarm) {
    const TempDir outer;
    const std::string dir = outer.file("cv 'events'\x1b[2J");
    auto put = [&](const std::string& file, const std::string& content) {
        fs::create_directories(fs::path(dir + "/" + file).parent_path());
        outer.write("cv 'events'\x1b[2J/" + file, content);
    };
    const std::string odd =
        R"({"signal":"\u001b[2J","logfile":"/a b","engine":{"path":"\u001b"},"backtrace":""})";
    put("2024_01_31_12_00_00/cvdump.json", CRASH.substr(0, 30));
    put("2024_01_31_12_00_01/log", "");
    put("2024_01_31_12_00_02/cvdump.json", odd);
    put("2024_01_31_12_00_02/a b\x1b[2J", "");
    put("2024_01_31_12_00_03/cv_hog_dump.txt", "time: 5\n");
    for (int i = 4; i < 6; ++i)
        put("2024_01_31_12_00_0" + std::to_string(i) + "/cvdump.json", i == 4 ? CRASH : "");
    const struct {
        const char* name;
        std::vector<const char*> shown;
        int json_status;
    } cases[] = {
        {"2024_01_31_12_00_00", {"cause     unknown\n", "report    can't be read: cvdump.json\n"}, 1},
        {"2024_01_31_12_00_01", {"cause     killed\n", "report    missing: cvdump.json\n"}, 1},
        {"2024_01_31_12_00_02", {"signal    \\x1b[2J\n", "'/a b'\n", "$'a b\\x1b[2J'  0 B"}, 0},
        {"2024_01_31_12_00_03", {"cause     stall\n", "report    missing: cvdump.json\n"}, 1},
        {"2024_01_31_12_00_04", {"cause     crash\n", "/cv \\'events\\'\\x1b[2J/2024_01_31_12_00_04'\n"}, 0},
        {"2024_01_31_12_00_05", {"cause     unknown\n"}, 1},
    };
    for (const auto& c : cases) {
        const test::Outcome shown = test::brumectl({"evidence", "show", c.name, "--dir", dir});
        EXPECT_EQ(shown.status, 0) << shown.err;
        EXPECT_EQ(shown.out.find('\x1b'), std::string::npos);
        for (const char* text : c.shown)
            EXPECT_NE(shown.out.find(text), std::string::npos) << text << " in:\n" << shown.out;
        EXPECT_EQ(test::brumectl({"--json", "evidence", "show", c.name, "--dir", dir}).status, c.json_status);
    }
}

TEST(EvidenceWord, AStoppedDaemonsLastReportIsFoundBesideItsLog) {
    test::Daemon daemon({.watchdog = true});
    daemon.result("shutdown");
    daemon.wait_exit();
    const std::string dir = daemon.dir().file("cvevents");
    const test::Outcome shown = test::brumectl({"evidence", "show", "--dir", dir});
    EXPECT_EQ(shown.status, 0) << shown.err;
    EXPECT_NE(shown.out.find("server received 'shutdown' request"), std::string::npos) << shown.out;
    EXPECT_EQ(test::brumectl({"evidence", "prune", "--keep", "0", "--dir", dir}).out,
              "0 removed from " + dir + "\n");
    EXPECT_EQ(test::brumectl({"evidence", "show", "2024_01_31_12_00_00", "--dir", dir}).status, 1);
}

}  // namespace
}  // namespace brumectl
