// The parent's end of the pipe that is the child's stderr.
#include "server/watchdog/corvo_wd_stderr.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "support/capture_logger.h"

namespace test {
namespace {

using corvo::UniqueFd;
using corvo::server::StderrReader;

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

TEST(StderrReader, ATextIsLoggedAsItIsInOneMessage) {
    CaptureLogger log;
    Pipe pipe;
    EXPECT_EQ(pipe.reader.read_stderr_from_child(0), 1) << "nothing came";
    EXPECT_TRUE(log.lines().empty());
    pipe.print("50% done, %s %n\nand more\n");
    EXPECT_EQ(pipe.reader.read_stderr_from_child(0), 0);
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.count("[WD    ][ERROR] - 50% done, %s %n\nand more\n"), 1);
}

TEST(StderrReader, TheEndOfThePipeEndsThePollAndLastWordsAreKept) {
    CaptureLogger log;
    Pipe pipe;
    pipe.print("bye");
    pipe.writer.reset();
    EXPECT_EQ(pipe.reader.read_stderr_from_child(3600 * 1000), 1);
    EXPECT_TRUE(pipe.reader.at_end());
    EXPECT_EQ(log.count(" - Bye"), 1);
    EXPECT_EQ(pipe.reader.read_stderr_from_child(3600 * 1000), 1) << "waits briefly and doesn't fail";
    EXPECT_EQ(log.lines().size(), 1u);
}

TEST(StderrReader, AFloodEndsThePollLongBeforeItsDeadline) {
    CaptureLogger log;
    Pipe pipe;
    ASSERT_GE(fcntl(pipe.writer.get(), F_SETPIPE_SZ, 1024 * 1024), 1024 * 1024);
    pipe.print(std::string(1024 * 1024, 'x'));
    for (size_t polls = 1; polls <= 1024 * 1024 / StderrReader::MAX_BYTES / 2; ++polls) {
        EXPECT_EQ(pipe.reader.read_stderr_from_child(3600 * 1000), 0);
        EXPECT_EQ(log.lines().size(), polls) << "one message a poll";
    }
    EXPECT_FALSE(pipe.reader.at_end());
}

}  // namespace
}  // namespace test
