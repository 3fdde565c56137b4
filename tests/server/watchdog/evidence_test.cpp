// The events directory and what is gathered in it.
#include "server/watchdog/corvo_wd_evidence.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "support/capture_logger.h"
#include "support/temp_dir.h"

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
    mkfifo(dir.file("pipe").c_str(), 0600);
    const struct {
        const char* src;
        const char* dst;
        const char* failure;
    } cases[] = {
        {"big", "copy", ""},
        {"missing", "copy", "failed to open 'DIR/missing' [No such file or directory]"},
        {"big", "no/copy", "failed to open 'DIR/no/copy' [No such file or directory]"},
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

}  // namespace
}  // namespace test
