#include "infra/corvo_scheduler.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/value.h>
#include <sys/time.h>

#include <csignal>

#include "infra/corvo_notif.h"
#include "infra/fd_event.h"
#include "support/capture_logger.h"
#include "utils/clock.h"
#include "utils/exception.h"

namespace corvo {
namespace {

using test::FdEvent;

class FnTask : public Task {
 public:
    FnTask(std::string name, std::function<int()> fn, int32_t hog_ms = 0)
        : Task(hog_ms), m_name(std::move(name)), m_fn(std::move(fn)) {}
    int execute() override { return m_fn(); }
    std::string get_name() const override { return m_name; }

 private:
    std::string m_name;
    std::function<int()> m_fn;
};

std::shared_ptr<Task> make_task(const std::string& name, std::function<int()> fn, int32_t hog_ms = 0) {
    return std::make_shared<FnTask>(name, std::move(fn), hog_ms);
}

int busy_for(unsigned ms) {
    const uint64_t end_ms = monotonic_ms() + ms;
    while (monotonic_ms() < end_ms)
        continue;
    return -1;
}

Json::Value task_stats(const Scheduler& sched) {
    Json::Value out;
    sched.stats(out);
    return out["tasks"];
}

TEST(Scheduler, StartsWithTheEventPollerTaskDueAtOnce) {
    Scheduler sched;
    Json::Value stats = task_stats(sched);
    ASSERT_EQ(1u, stats["tasks"].size());
    EXPECT_EQ("Event Poller", stats["tasks"][0]["name"]);
    EXPECT_EQ(0, stats["tasks"][0]["when"].asInt());
    EXPECT_EQ(-1, stats["tasks"][0]["last_ms"].asInt());

    EXPECT_EQ(0, sched.step());
    const int wait_ms = sched.step();
    EXPECT_GT(wait_ms, 50);
    EXPECT_LE(wait_ms, Scheduler::MAX_WAIT_TIME_MS);
    stats = task_stats(sched);
    EXPECT_EQ(2u, stats["adds"].asUInt());
    EXPECT_GE(stats["tasks"][0]["last_ms"].asInt(), 0);

    sched.clear();
    EXPECT_EQ(-1, sched.step());
    EXPECT_EQ(Json::arrayValue, task_stats(sched)["tasks"].type());
}

TEST(Scheduler, RunsOneDueTaskAStepInOrderOfInsertionAndBeforeAnyEvent) {
    Scheduler sched;
    sched.clear();
    std::string order;
    auto ev = std::make_shared<FdEvent>([&](FdEvent& self, EventExpireReason) {
        order += 'e';
        return self.done();
    });
    sched.add(ev, EVENT_STATE_READ, 0);
    ev->raise();
    for (const char name : {'a', 'b', 'c'})
        sched.add(make_task({name}, [&order, name] { return order += name, -1; }), 0);
    for (const char* expected : {"a", "ab", "abc", "abce"}) {
        EXPECT_EQ(0, sched.step());
        EXPECT_EQ(expected, order);
    }
    EXPECT_EQ(-1, sched.step());
}

TEST(Scheduler, ARunningTaskIsOutOfTheQueue) {
    Scheduler sched;
    sched.clear();
    std::shared_ptr<Task> task = make_task("self", [&] {
        EXPECT_FALSE(sched.exists(task.get()));
        EXPECT_FALSE(sched.remove(task.get()));
        return 1000;
    });
    sched.add(task, 0);
    EXPECT_EQ(0, sched.step());
    EXPECT_TRUE(sched.exists(task.get()));
    EXPECT_TRUE(sched.remove(task.get()));
    EXPECT_EQ(2u, task_stats(sched)["removes"].asUInt());  // the other one was the poller's task
    EXPECT_EQ(1, task.use_count());
}

TEST(Scheduler, ReportsATaskOnlyWhenItOverrunsItsBudget) {
    test::CaptureLogger log(Logger::WARN);
    Scheduler sched;
    sched.clear();
    sched.add(make_task("no budget", [] { return busy_for(5), 1000; }), 0);
    sched.add(make_task(
                  "in time", [] { return 1000; }, 60000),
              0);
    sched.add(make_task(
                  "hog", [] { return busy_for(20), 1000; }, 5),
              0);
    for (int i = 0; i < 3; ++i)
        sched.step();

    const Json::Value stats = task_stats(sched)["tasks"];
    ASSERT_EQ(3u, stats.size());
    for (const Json::Value& task : stats)
        EXPECT_EQ(task["name"] == "hog" ? 1u : 0u, task["hogs"].asUInt()) << task["name"].asString();
    const Json::Value& hog = stats[2];
    EXPECT_GE(hog["max_ms"].asUInt(), 20u);
    EXPECT_EQ(hog["max_ms"].asUInt() / 2, hog["avg_ms"].asUInt());
    EXPECT_EQ(1u, log.lines().size());
    EXPECT_EQ(1, log.count("HOG: 'hog' [~" + hog["max_ms"].asString() + " ms]"));

    Json::Value params, res;
    params["cmd"] = "log";
    notif::ops(params, res);
    const Json::Value& last = res["notif"]["log"][res["notif"]["log"].size() - 1];
    EXPECT_EQ("sched.hog", last["name"]);
    EXPECT_EQ("Task: hog [~" + hog["max_ms"].asString() + " ms]", last["desc"].asString());
}

TEST(Scheduler, EventsAreServedUnderAConstantLoadOfDueTasks) {
    Scheduler sched;
    auto ev = std::make_shared<FdEvent>([&](FdEvent& self, EventExpireReason) {
        sched.stop(7);
        return self.done();
    });
    sched.add(make_task("busy", [] { return 0; }), 0);
    sched.add(ev, EVENT_STATE_READ, 0);
    ev->raise();
    EXPECT_EQ(7, sched.run());
}

TEST(Scheduler, StoppingRunsTheCallbackBeforeEverythingIsCleared) {
    Scheduler sched;
    EXPECT_THROW(sched.stop(Scheduler::CAUSE_RUNNING), Exception);
    auto waiting = make_task("waiting", [] { return -1; });
    auto ev = std::make_shared<FdEvent>();
    int cause = 0;
    sched.register_to_scheduler_event(Scheduler::SCHED_EVENT_STOP, [&](int value) {
        cause = value;
        EXPECT_TRUE(sched.exists(waiting.get()));
        EXPECT_TRUE(sched.exists(ev.get()));
    });
    sched.register_to_scheduler_event(static_cast<Scheduler::event_e>(1), nullptr);
    sched.add(waiting, 60000);
    sched.add(ev, EVENT_STATE_READ, 0);
    sched.add(make_task("stop", [&] { return sched.stop(3), -1; }), 0);
    EXPECT_EQ(3, sched.run());
    EXPECT_EQ(3, cause);
    EXPECT_FALSE(sched.exists(waiting.get()));
    EXPECT_FALSE(sched.exists(ev.get()));
}

TEST(Scheduler, AnExceptionEndsTheLoopAndOneInTheCallbackIsSwallowed) {
    test::CaptureLogger log;
    Scheduler sched;
    int cause = 0;
    sched.register_to_scheduler_event(Scheduler::SCHED_EVENT_STOP, [&](int value) {
        cause = value;
        throw Exception("100% broken");
    });
    sched.add(make_task("thrower", []() -> int { throw Exception("no"); }), 0);
    EXPECT_EQ(-1001, sched.run());
    EXPECT_EQ(-1001, cause);
    EXPECT_EQ(1u, log.lines().size());
    EXPECT_EQ(1, log.count("Error on shutdown: 100% broken"));
}

Scheduler* g_interrupted = nullptr;

TEST(Scheduler, ASignalEndsAWait) {
    Scheduler sched;
    sched.clear();  // with nothing to do at all the loop sleeps a whole second
    g_interrupted = &sched;
    struct sigaction action {};
    action.sa_handler = [](int) { g_interrupted->stop(5); };
    struct sigaction previous;
    ASSERT_EQ(0, sigaction(SIGALRM, &action, &previous));
    const itimerval soon{{0, 0}, {0, 10000}};
    ASSERT_EQ(0, setitimer(ITIMER_REAL, &soon, nullptr));
    const uint64_t start_ms = monotonic_ms();
    EXPECT_EQ(5, sched.run());
    EXPECT_LT(monotonic_ms() - start_ms, 900u);
    sigaction(SIGALRM, &previous, nullptr);
}

}  // namespace
}  // namespace corvo
