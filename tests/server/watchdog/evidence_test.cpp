// The events directory and what is gathered in it.
#include "server/watchdog/corvo_server_sig.h"
#include "server/watchdog/corvo_wd_evidence.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

#include "support/capture_logger.h"
#include "support/temp_dir.h"
#include "utils/trusted_open.h"

namespace test {
namespace {

using namespace corvo::server;
namespace fs = std::filesystem;

TEST(Evidence, TheEventsDirectoryStandsBesideTheLog) {
    const struct {
        const char* log;
        const char* events;
        const char* name;
    } cases[] = {
        {"server.log", "./cvevents/", "server.log"},
        {"/x.log", "/cvevents/", "x.log"},
        {"/var/log/b.log", "/var/log/cvevents/", "b.log"},
        {"logs/b.log", "logs/cvevents/", "b.log"},
        {"", "./cvevents/", ""},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(get_events_dest_dir_name(c.log), c.events);
        EXPECT_EQ(get_logfile_name(c.log), c.name);
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
    const struct {
        const char* src;
        const char* dst;
        const char* failure;
    } cases[] = {
        {"big", "copy", ""},
        {"missing", "copy", "failed to open 'DIR/missing' [No such file or directory]"},
        {"big", "no/copy", "failed to open 'DIR/no/copy' [No such file or directory]"},
        {"huge", "full", "failed writing 'DIR/full' [No space left on device]"},
        {"big", "full", "failed writing 'DIR/full' [No space left on device]"},
        {"empty", "copy of empty", "failed reading 'DIR/empty' [Success]"},
        {"pipe", "copy of pipe", "failed reading 'DIR/pipe' [Invalid argument]"},
        {"endless", "copy of endless", "failed reading 'DIR/endless' [Invalid argument]"},
    };
    for (const auto& c : cases) {
        CaptureLogger log;
        copy_file(dir.file(c.src), dir.file(c.dst), 0);
        std::string failure = c.failure;
        for (size_t at; (at = failure.find("DIR")) != std::string::npos;)
            failure.replace(at, 3, dir.path());
        if (failure.empty())
            EXPECT_TRUE(log.lines().empty()) << log.lines()[0];
        else
            EXPECT_EQ(log.count("Copy file: " + failure), 1) << c.src << " " << c.dst;
    }
    EXPECT_EQ(read_file(dir.file("copy")), big);
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
    // Links in a folder of ours lead nowhere.
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

    // The log itself: a link of somebody else's, in a folder that is his, too.
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
