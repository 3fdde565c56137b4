// The supervising parent: what it decides, reads and gathers.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <csignal>
#include <filesystem>
#include <limits>
#include <tuple>

#include "server/watchdog/corvo_server_sig.h"
#include "server/watchdog/corvo_wd_backoff.h"
#include "server/watchdog/corvo_wd_evidence.h"
#include "server/watchdog/corvo_wd_exit.h"
#include "server/watchdog/corvo_wd_ladder.h"
#include "server/watchdog/corvo_wd_signals.h"
#include "server/watchdog/corvo_wd_stderr.h"
#include "support/capture_logger.h"
#include "support/temp_dir.h"
#include "utils/trusted_open.h"

namespace test {
namespace {

using namespace corvo::server;
using corvo::UniqueFd;
namespace fs = std::filesystem;

TEST(Ladder, EachLimitItselfStillBelongsToTheRungBelow) {
    const uint32_t hog = 2000, kill = 20000, most = std::numeric_limits<uint32_t>::max();
    const std::tuple<int64_t, uint32_t, bool, Reaction> cases[] = {
        // silence, kill time-out, put down before
        {-5, kill, false, Reaction::NONE},
        {hog, kill, false, Reaction::NONE},
        {hog + 1, kill, false, Reaction::HOG},
        {kill, kill, true, Reaction::HOG},
        {kill + 1, kill, false, Reaction::ABORT},
        {kill + 10000, kill, true, Reaction::AWAIT_ABORT},
        {kill + 10001, kill, true, Reaction::KILL},
        {int64_t{most} + 10000, most, false, Reaction::ABORT},
        {int64_t{most} + 10001, most, false, Reaction::KILL},
    };
    for (const auto& [silence, kill_timeout, put_down, expected] : cases)
        EXPECT_EQ(reaction_to(silence, hog, kill_timeout, put_down), expected) << silence << " " << put_down;
}

TEST(ChildExit, AnInterruptedWaitIsNoEnd) {
    for (auto [result, error, end] :
         {std::tuple{7, EINTR, true}, {-1, ECHILD, true}, {-1, EINTR, false}, {0, 0, false}})
        EXPECT_EQ(wait_tells_end(result, error), end) << result << " " << error;
}

constexpr int exited(int code) {
    return code << 8;
}
constexpr int CORE = 0x80;

TEST(ChildExit, IsJudgedByStopThenWatchdogThenStatus) {
    const std::tuple<int, int, bool, bool, int> cases[] = {
        // status, stop, put down; normal, exit code
        {exited(0), STOP_NONE, false, true, 0},      {exited(3), STOP_NONE, false, false, 3},
        {exited(0), STOP_NONE, true, false, 1},      {exited(3), STOP_NONE, true, false, 3},
        {SIGSEGV, STOP_NONE, false, false, 1},       {SIGABRT | CORE, STOP_NONE, true, false, 1},
        {SIGSEGV, STOP_SIGTERM, false, true, 0},     {SIGKILL, STOP_SIGINT, true, true, 0},
        {exited(255), STOP_SIGINT, true, true, 255},
    };
    for (const auto& [status, stop, put_down, normal, code] : cases) {
        EXPECT_EQ(child_exited_normally(status, stop, put_down), normal)
            << status << " " << stop << " " << put_down;
        EXPECT_EQ(parent_exit_code(status, normal), code) << status << " " << stop;
    }
}

// tests/process/watchdog_test.py sees the other lines.
TEST(ChildExit, IsToldWithItsCodeOrItsCoreDump) {
    EXPECT_EQ(status_info(exited(0), true).back().text, "Exit code: 0");
    EXPECT_EQ(status_info(SIGABRT | CORE, true).back().text, "Core dump created");
}

/** The delays for a child that dies as soon as it has started. */
std::vector<uint32_t> delays(const WDConf& conf, size_t count, int64_t now = 100) {
    ReloadBackoff backoff;
    std::vector<uint32_t> found;
    while (found.size() < count) {
        found.push_back(backoff.next_delay_sec(conf, now));
        now += found.back();
    }
    return found;
}

TEST(ReloadBackoff, GrowsUntilTheQuietTimeOrTheCeiling) {
    using Delays = std::vector<uint32_t>;
    WDConf conf;
    EXPECT_EQ(delays(conf, 9), (Delays{0, 2, 4, 8, 16, 32, 0, 2, 4}));
    EXPECT_EQ(delays(conf, 3, int64_t{1} << 32), (Delays{0, 2, 4}));
    conf.backoff_max_interval_sec = 5;
    EXPECT_EQ(delays(conf, 6), (Delays{0, 2, 4, 5, 5, 5}));
    conf.backoff_multiplier = 1;
    EXPECT_EQ(delays(conf, 4), (Delays{0, 1, 1, 1}));
    // The fraction is kept, and only what is slept is cut down: 1.5, 2.25, 3.375, 5.
    conf.backoff_multiplier = 1.5;
    EXPECT_EQ(delays(conf, 6), (Delays{0, 1, 2, 3, 5, 5}));
    for (const double odd : {std::numeric_limits<double>::infinity(), std::nan("")}) {
        conf.backoff_multiplier = odd;
        EXPECT_EQ(delays(conf, 3), (Delays{0, 5, 5}));
    }
}

TEST(ReloadBackoff, StartsOverAfterAQuietTimeAndWhenTimeRunsBackwards) {
    const WDConf conf;
    ReloadBackoff backoff;
    for (const auto& [now, delay] :
         {std::pair{100, 0u}, {130, 2}, {160, 4}, {191, 0}, {192, 2}, {150, 0}, {151, 2}})
        EXPECT_EQ(backoff.next_delay_sec(conf, now), delay) << now;
}

struct Pipe {
    Pipe() {
        int ends[2];
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        reader = StderrReader(UniqueFd(ends[0]));
        writer.reset(ends[1]);
    }
    void print(const std::string& text) const {
        EXPECT_EQ(write(writer.get(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }

    StderrReader reader;
    UniqueFd writer;
};

TEST(StderrReader, ATextIsLoggedAsItIsInOneMessageAndLastWordsAreKept) {
    CaptureLogger log;
    Pipe pipe;
    EXPECT_EQ(pipe.reader.read_stderr_from_child(0), 1) << "nothing came";
    EXPECT_TRUE(log.lines().empty());
    pipe.print("50% done, %s %n\n\nand more\n");
    EXPECT_EQ(pipe.reader.read_stderr_from_child(0), 0);
    EXPECT_EQ(log.count("[WD    ][ERROR] - 50% done, %s %n\n\nand more\n"), 1);
    pipe.print("bye");
    pipe.writer.reset();
    for (const char* what : {"tells the end", "waits briefly and doesn't fail"})
        EXPECT_EQ(pipe.reader.read_stderr_from_child(3600000), 1) << what;
    EXPECT_TRUE(pipe.reader.at_end());
    EXPECT_EQ(log.count(" - Bye"), 1);
    EXPECT_EQ(log.lines().size(), 2u);
}

TEST(StderrReader, AFloodEndsThePollLongBeforeItsDeadline) {
    CaptureLogger log;
    Pipe pipe;
    constexpr size_t FLOOD = 1UL << 20;
    ASSERT_GE(fcntl(pipe.writer.get(), F_SETPIPE_SZ, FLOOD), static_cast<int>(FLOOD));
    pipe.print(std::string(FLOOD, 'x'));
    for (size_t polls = 1; polls <= FLOOD / StderrReader::MAX_BYTES / 2; ++polls) {
        EXPECT_EQ(pipe.reader.read_stderr_from_child(3600000), 0);
        EXPECT_EQ(log.lines().size(), polls) << "one message a poll";
    }
    EXPECT_FALSE(pipe.reader.at_end());
}

TEST(Evidence, TheEventsDirectoryStandsBesideTheLog) {
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"server.log", "./cvevents/", "server.log"},
        {"/x.log", "/cvevents/", "x.log"},
        {"logs/b.log", "logs/cvevents/", "b.log"},
        {"", "./cvevents/", ""},
    };
    for (const auto& [log, events, name] : cases) {
        EXPECT_EQ(get_events_dest_dir_name(log), events);
        EXPECT_EQ(get_logfile_name(log), name);
    }
}

TEST(Evidence, AFileIsCopiedWholeAndEveryFailureNamesItsFile) {
    const TempDir dir;
    const std::string big(100000, 'b');
    fs::create_symlink("/dev/full", dir.file("full"));
    fs::create_symlink("/dev/zero", dir.file("endless"));
    dir.write("big", big);
    dir.write("empty", "");
    dir.write("huge", "");
    ASSERT_EQ(truncate(dir.file("huge").c_str(), static_cast<off_t>(uint64_t{1} << 31)), 0);
    mkfifo(dir.file("pipe").c_str(), 0600);
    const std::tuple<const char*, const char*, const char*, const char*> cases[] = {
        {"missing", "copy", "failed to open '", "missing' [No such file or directory]"},
        {"big", "no/copy", "failed to open '", "no/copy' [No such file or directory]"},
        {"huge", "full", "failed writing '", "full' [No space left on device]"},
        {"big", "full", "failed writing '", "full' [No space left on device]"},
        {"empty", "copy of empty", "failed reading '", "empty' [Success]"},
        {"pipe", "copy of pipe", "failed reading '", "pipe' [Invalid argument]"},
        {"endless", "copy of endless", "failed reading '", "endless' [Invalid argument]"},
    };
    CaptureLogger log;
    copy_file(dir.file("big"), dir.file("copy"), 0);
    EXPECT_TRUE(log.lines().empty());
    EXPECT_EQ(read_file(dir.file("copy")), big);
    for (const auto& [from, to, what, about] : cases) {
        copy_file(dir.file(from), dir.file(to), 0);
        EXPECT_THAT(log.lines().back(), testing::EndsWith("Copy file: " + (what + dir.file(about))))
            << from << to;
    }
    EXPECT_TRUE(fs::exists(dir.file("copy of empty")));
}

TEST(Evidence, NothingIsWrittenWhereAStrangerHasLaidATrap) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can make somebody else's folders and links";
    constexpr uid_t STRANGER = 65534;
    const TempDir dir;
    const std::string log = dir.file("log"), events = dir.file("cvevents/"), victim = dir.file("victim");
    dir.write("victim", "precious");
    dir.write("log", "lines");
    fs::create_directory(events);
    for (const char* name : {"cvdump.json", "cv_hog_dump.txt", ".cveventsdummy"})
        fs::create_symlink(victim, events + name);
    // Links in our own folder aren't followed.
    get_sig_handler()->init(events.c_str(), log);
    SigHandler::write_sig_report(SIGSEGV, nullptr);
    get_sig_handler()->on_hog_signal();
    EXPECT_EQ(read_file(victim), "precious");

    const std::string denied = "Creating dir for events '" + events + "' failed [Operation not permitted]";
    ASSERT_EQ(chown(events.c_str(), STRANGER, STRANGER), 0);
    {
        CaptureLogger lines;
        create_events_dir(events);
        collect_process_info(log, "", {"cvdump.json"});
        EXPECT_EQ(lines.count(denied), 2);
    }
    fs::remove_all(events);
    fs::create_directory(dir.file("elsewhere"));
    fs::create_directory_symlink(dir.file("elsewhere"), dir.file("cvevents"));
    SigHandler::write_sig_report(SIGSEGV, nullptr);
    create_events_dir(events);
    EXPECT_TRUE(fs::is_empty(dir.file("elsewhere")));

    // The log itself: a stranger's link isn't followed in a folder that is open to all.
    fs::create_symlink("victim", dir.file("trap"));
    ASSERT_EQ(lchown(dir.file("trap").c_str(), STRANGER, STRANGER), 0);
    for (const bool shared : {true, false}) {
        chmod(dir.path().c_str(), shared ? 0777 : 0755);
        EXPECT_EQ(!corvo::open_unless_trap(dir.file("trap"), O_RDONLY), shared);
        EXPECT_FALSE(!corvo::open_unless_trap(log, O_RDONLY));
        corvo::Logger::clear_log_file(dir.file("trap"));
        EXPECT_EQ(read_file(victim), shared ? "precious" : "");
    }
}

}  // namespace
}  // namespace test
