// A daemon that has been up for weeks: its clock passes the limits of 32-bit milliseconds while it is
// watched.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <ctime>

#include "support/daemon.h"

#ifndef CLONE_NEWTIME
#define CLONE_NEWTIME 0x00000080
#endif

namespace test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

/** What the next program that this process becomes reads from the monotonic clock, in milliseconds. */
bool set_monotonic(int64_t ms) {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const int64_t offset_ms = ms - (int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000);
    char text[64];
    const int size =
        snprintf(text, sizeof text, "monotonic %lld %lld\n", static_cast<long long>(offset_ms / 1000),
                 static_cast<long long>(offset_ms % 1000 * 1000000));
    if (unshare(CLONE_NEWTIME) != 0) return false;
    const int fd = open("/proc/self/timens_offsets", O_WRONLY | O_CLOEXEC);
    const bool written = fd >= 0 && write(fd, text, static_cast<size_t>(size)) == size;
    close(fd);
    return written;
}

bool time_namespaces_are_permitted() {
    const pid_t pid = fork();
    if (pid == 0) _exit(set_monotonic(int64_t{1} << 33) ? 0 : 1);
    int status = -1;
    waitpid(pid, &status, 0);
    return status == 0;
}

TEST(Clock, SupervisionOutlivesThirtyTwoBitMilliseconds) {
    if (!time_namespaces_are_permitted()) GTEST_SKIP() << "no time namespaces here";
    constexpr int64_t BEFORE_MS = 2500;
    for (const int64_t limit_ms : {int64_t{1} << 31, int64_t{1} << 32}) {
        SCOPED_TRACE(limit_ms);
        Daemon daemon(
            {.args = {"--wd_hog_timeout", "4000", "--wd_kill_timeout", "9000", "--wd_reload", "-v", "debug"},
             .watchdog = true,
             .before_exec = [&] { set_monotonic(limit_ms - BEFORE_MS); }});
        ASSERT_NEAR(daemon.result("ping")["ts"].asDouble() * 1000, static_cast<double>(limit_ms), 60000);
        ASSERT_TRUE(eventually([&] { return daemon.result("ping")["ts"].asInt64() * 1000 > limit_ms; }));

        // Reloading, too, measures time: the second crash within a moment costs two seconds.
        const std::vector<pid_t> first = descendants(daemon.pid());
        ASSERT_EQ(first.size(), 1U);
        kill(first[0], SIGKILL);
        EXPECT_TRUE(eventually([&] {
            const std::vector<pid_t> now = descendants(daemon.pid());
            return now.size() == 1 && now != first && UnixClient(daemon.socket_path()).send("");
        }));
        EXPECT_TRUE(daemon.result("ping").isMember("ts"));
        EXPECT_LT(daemon.result("status")["uptime"].asInt(), 60);
        EXPECT_EQ(daemon.stop(), 0);
        EXPECT_THAT(daemon.log(), Not(HasSubstr("No heartbeat for")));
        EXPECT_THAT(daemon.log(), Not(HasSubstr("Sending HOG signal")));
    }
}

}  // namespace
}  // namespace test
