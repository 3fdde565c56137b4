// What the parent decides, from numbers alone.
#include <gtest/gtest.h>

#include <cerrno>
#include <cmath>
#include <csignal>
#include <limits>
#include <tuple>

#include "server/watchdog/corvo_wd_backoff.h"
#include "server/watchdog/corvo_wd_exit.h"
#include "server/watchdog/corvo_wd_ladder.h"
#include "server/watchdog/corvo_wd_signals.h"

namespace test {
namespace {

using namespace corvo::server;

TEST(Ladder, EachLimitItselfStillBelongsToTheRungBelow) {
    const uint32_t hog = 2000;
    const uint32_t kill = 20000;
    const uint32_t most = std::numeric_limits<uint32_t>::max();
    const struct {
        int64_t silence;
        uint32_t kill_timeout;
        bool put_down;
        Reaction expected;
    } cases[] = {
        {-5, kill, false, Reaction::NONE},
        {hog, kill, false, Reaction::NONE},
        {hog + 1, kill, false, Reaction::HOG},
        {kill, kill, false, Reaction::HOG},
        {kill, kill, true, Reaction::HOG},
        {kill + 1, kill, false, Reaction::ABORT},
        {kill + 1, kill, true, Reaction::AWAIT_ABORT},
        {kill + 10000, kill, true, Reaction::AWAIT_ABORT},
        {kill + 10001, kill, true, Reaction::KILL},
        {kill + 10001, kill, false, Reaction::KILL},
        {int64_t{most} + 10000, most, false, Reaction::ABORT},
        {int64_t{most} + 10001, most, false, Reaction::KILL},
    };
    for (const auto& c : cases)
        EXPECT_EQ(reaction_to(c.silence, hog, c.kill_timeout, c.put_down), c.expected)
            << c.silence << " " << c.put_down;
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
    const struct {
        int status;
        int stop;
        bool put_down;
        bool normal;
        int exit_code;
    } cases[] = {
        {exited(0), STOP_NONE, false, true, 0},      {exited(3), STOP_NONE, false, false, 3},
        {exited(0), STOP_NONE, true, false, 1},      {exited(3), STOP_NONE, true, false, 3},
        {SIGSEGV, STOP_NONE, false, false, 1},       {SIGABRT | CORE, STOP_NONE, true, false, 1},
        {SIGSEGV, STOP_SIGTERM, false, true, 0},     {SIGKILL, STOP_SIGINT, true, true, 0},
        {exited(255), STOP_SIGINT, true, true, 255},
    };
    for (const auto& c : cases) {
        const bool normal = child_exited_normally(c.status, c.stop, c.put_down);
        EXPECT_EQ(normal, c.normal) << c.status << " " << c.stop << " " << c.put_down;
        EXPECT_EQ(parent_exit_code(c.status, normal), c.exit_code) << c.status << " " << c.stop;
    }
}

/** What is said behind the banner, or all of it where there's none. */
std::string told(int status, bool put_down) {
    std::string text;
    bool in_banner = false;
    for (const StatusLine& line : status_info(status, put_down)) {
        if (line.text.empty())
            in_banner = !in_banner;
        else if (!in_banner)
            text += (line.level == corvo::Logger::INFO ? "i:" : "e:") + line.text + "\n";
    }
    return text;
}

TEST(ChildExit, IsToldLineByLine) {
    EXPECT_EQ(told(exited(0), false), "i:Process terminated normally\n");
    EXPECT_EQ(told(exited(0), true), "e:Exit code: 0\n");
    EXPECT_EQ(told(exited(7), false), "e:Exit code: 7\n");
    EXPECT_EQ(told(SIGKILL, false),
              "e:Exit code: 0\ne:Terminated by signal [Killed]\ne:Core dump not created\n"
              "i:Detailed report was not created due to brutal kill of process\n");
    EXPECT_EQ(told(SIGABRT | CORE, true),
              "e:Exit code: 0\n"
              "e:Process killed by watchdog since not responding (HOG details may still exist)\n"
              "e:Terminated by signal [Aborted]\ne:Core dump created\n");
}

/** Delays of a child that dies as soon as it has been started. */
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
    const struct {
        int64_t now;
        uint32_t delay;
    } steps[] = {{100, 0}, {130, 2}, {160, 4}, {191, 0}, {192, 2}, {150, 0}, {151, 2}};
    for (const auto& step : steps)
        EXPECT_EQ(backoff.next_delay_sec(conf, step.now), step.delay) << step.now;
}

}  // namespace
}  // namespace test
