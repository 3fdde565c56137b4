#include "infra/corvo_logger.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <csignal>

#include "support/capture_logger.h"
#include "support/client.h"
#include "support/temp_dir.h"
#include "utils/unique_fd.h"

namespace corvo::Logger {
namespace {

using test::CaptureLogger;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::StartsWith;

const std::string COMP = "server";

TEST(Logger, WritesTheSameLineInItsFixedLayoutToBothOutputs) {
    test::TempDir dir;
    CaptureLogger log(INFO, dir.file("log"));
    xlog("/some/where/corvo_server", 458, INFO, COMP, "waiting for %d %s", 3, "messages");
    ASSERT_EQ(1u, log.lines().size());
    EXPECT_EQ(log.lines()[0] + "\n", test::read_file(dir.file("log")));
    EXPECT_THAT(log.lines()[0],
                MatchesRegex("\\[ *[0-9]+\\] - [0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}"
                             "\\.(0  |[1-9] {2}|[1-9][0-9] |[1-9][0-9]{2}) - "
                             "\\(corvo_server:458\\) {13}- \\[server\\]\\[INFO \\] - "
                             "Waiting for 3 messages"));
    char thread[16];
    std::snprintf(thread, sizeof thread, "[%5d] ", getpid());
    EXPECT_THAT(log.lines()[0], StartsWith(thread));
}

TEST(Logger, ShapesLocationTagAndFirstLetter) {
    const std::tuple<const char*, const char*, logger_level_e, const char*, const char*> cases[] = {
        {nullptr, "rpc", WARN, "x", " - (-)                            - [rpc   ][WARN ] - X"},
        {"/a/", "rpc-worker", ERROR, "", " - (:12)                          - [rpc-wo][ERROR] - "},
        {"a_source_file_of_a_long_name.cpp", "WD", INFO, "1a",
         " - (e_file_of_a_long_name.cpp:12) - [WD    ][INFO ] - 1a"},
        {"100%s", "%d", INFO, "%%s", " - (100%s:12)                     - [%d    ][INFO ] - %s"},
    };
    CaptureLogger log(DEBUG);
    for (const auto& [file, comp, level, text, end] : cases) {
        xlog(file, 12, level, comp, text);
        EXPECT_THAT(log.lines().back(), EndsWith(end));
    }
    xlog("f", 1, INFO, COMP, "%s", "lower");
    EXPECT_THAT(log.lines().back(), EndsWith(" - lower"));
    CORVO_LOG_TEXT(INFO, COMP, std::string("ends in 100%s"));
    EXPECT_THAT(log.lines().back(), EndsWith(" - Ends in 100%s"));
}

TEST(Logger, AComponentsOwnLevelGoesBeforeTheGlobalOne) {
    CaptureLogger log(ERROR);
    EXPECT_FALSE(pred(DEBUG, "sched"));
    log.set_verbosity(DEBUG, "rpc");
    log.set_verbosity(QUIET, "WD");
    EXPECT_TRUE(pred(DEBUG, "rpc"));
    EXPECT_FALSE(pred(ERROR, "WD"));
    EXPECT_TRUE(pred(ERROR, "sched"));
    EXPECT_EQ(ERROR, log.get_comp_verb("never asked about"));
    log.set_verbosity(WARN);
    EXPECT_STREQ("WARN ", log.get_verbosity());
    EXPECT_TRUE(pred(WARN, "sched"));
}

TEST(Logger, HistoryIsTheLastLinesOldestFirstAndEndsAtALineThatItsBufferCannotHold) {
    const std::string longest(8095, 'x');
    const std::tuple<std::string, unsigned, std::vector<std::string>> cases[] = {
        {"1\n2\n\n4\n5", 0, {"kept"}},
        {"1\n2\n\n4\n5", 2, {"kept", "4", "5"}},
        {"1\n2\n\n4\n5", 10, {"kept", "1", "2", "", "4", "5"}},
        {"1\n2\n\n4\n5\n", UINT_MAX, {"kept", "1", "2", "", "4", "5"}},
        {longest + "\n" + longest + "x\nnever seen\n", 10, {"kept", longest}},
    };
    for (const auto& [content, lines, expected] : cases) {
        test::TempDir dir;
        CaptureLogger log(INFO, dir.write("log", content));
        std::vector<std::string> out{"kept"};
        history(out, lines);
        EXPECT_EQ(expected, out) << lines;
    }
}

TEST(Logger, AFileHasHistoryHoweverBigAndLateItIs) {
    constexpr auto TWO_GIB = static_cast<off_t>(uint64_t{1} << 31);
    constexpr auto IN_2040 = static_cast<time_t>(2208988800);
    for (const bool big : {true, false}) {
        test::TempDir dir;
        const std::string file = dir.write("log", "first\n");
        const timespec late[] = {{IN_2040, 0}, {IN_2040, 0}};
        ASSERT_EQ(0, big ? truncate(file.c_str(), TWO_GIB) : utimensat(AT_FDCWD, file.c_str(), late, 0));
        CaptureLogger log(INFO, file);
        std::vector<std::string> out;
        history(out, 10);
        EXPECT_THAT(out, ElementsAre("first")) << (big ? "big" : "late");
    }
}

TEST(Logger, ThePlaceholderAnswersWhenNoLoggerIsOpen) {
    test::TempDir dir;
    const size_t before = test::open_descriptors();
    open_logger(LOGGER_SYSLOG, INFO, dir.file("log"));
    set_logger(get_logger());
    EXPECT_EQ(dir.file("log"), get_log_filename());
    open_logger(static_cast<logger_type_e>(2), DEBUG, dir.file("other"));
    EXPECT_FALSE(pred(ERROR, COMP));
    EXPECT_EQ("", get_log_filename());
    std::vector<std::string> out;
    history(out, 10);
    EXPECT_THAT(out, IsEmpty());
    EXPECT_EQ(before, test::open_descriptors());
}

TEST(Logger, ALineThatTheDiskHasNoRoomForIsLeftOutAsAWhole) {
    test::TempDir dir;
    const std::string file = dir.write("log", "kept\n");
    CaptureLogger log(INFO, file);
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit full{20, before.rlim_max};
    const auto on_limit = std::signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &full);
    CORVO_LOG(INFO, COMP, "cut in its middle");
    setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, on_limit);
    EXPECT_EQ("kept\n", test::read_file(file));
    CORVO_LOG(INFO, COMP, "next");
    EXPECT_EQ("kept\n" + log.lines().back() + "\n", test::read_file(file));
}

TEST(Logger, APipeThatNobodyReadsCostsLinesAndNoWait) {
    test::TempDir dir;
    const std::string pipe = dir.file("pipe");
    ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
    clear_log_file(pipe);
    EXPECT_EQ("", CaptureLogger(INFO, pipe).get_log_filename());

    const UniqueFd stalled(open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    CaptureLogger log(INFO, pipe);
    EXPECT_EQ(pipe, log.get_log_filename());
    for (int i = 0; i < 2000; ++i)  // more than a pipe holds
        CORVO_LOG(INFO, COMP, "line %d", i);
    std::vector<std::string> out;
    log.history(out, 1);
    EXPECT_THAT(out, IsEmpty());
}

}  // namespace
}  // namespace corvo::Logger
