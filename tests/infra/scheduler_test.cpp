// The loop: descriptors, timers and tasks.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <json/value.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <functional>
#include <string>

#include "infra/corvo_event.h"
#include "infra/corvo_event_poller.h"
#include "infra/corvo_notif.h"
#include "infra/corvo_scheduler.h"
#include "support/capture_logger.h"
#include "support/error_of.h"
#include "utils/clock.h"
#include "utils/exception.h"

namespace corvo {
namespace {

/** On an eventfd: readable once it is raised, writable unless it is full. */
class FdEvent : public Event {
 public:
    using work = std::function<EventRC(FdEvent&, EventExpireReason)>;

    explicit FdEvent(work fn = {}) : m_work(std::move(fn)) { m_fd = eventfd(0, EFD_NONBLOCK); }
    ~FdEvent() override { close(m_fd); }

    std::string get_name() const override { return "fd event"; }
    EventRC do_work(const EventExpireReason& reason) override {
        ++runs;
        return m_work ? m_work(*this, reason) : done();
    }

    void raise() { eventfd_write(m_fd, 1); }
    void fill() { eventfd_write(m_fd, UINT64_MAX - 1); }
    void drain() {
        eventfd_t ignored;
        eventfd_read(m_fd, &ignored);
    }

    using Event::done;
    using Event::resched;
    int runs = 0;

 private:
    work m_work;
};

class PollerTest : public testing::Test {
 protected:
    /** Once the result is dropped, only the poller owns the event. */
    std::shared_ptr<FdEvent> add(EventState state, uint32_t timeout_ms, FdEvent::work work = {}) {
        auto ev = std::make_shared<FdEvent>(std::move(work));
        poller.add(ev, state, timeout_ms);
        return ev;
    }

    FdEvent::work remember() {
        return [this](FdEvent& self, EventExpireReason reason) { return seen = reason, self.resched(0u); };
    }

    EventPoller poller;
    EventExpireReason seen{};
};

TEST_F(PollerTest, SleepsTheWholeWaitWithoutEventsAndEvenWhenBroken) {
    EXPECT_FALSE(poller.handle_pending_events(1000));
    uint64_t start_ms = monotonic_ms();
    EXPECT_FALSE(poller.wait(10));
    EXPECT_GE(monotonic_ms() - start_ms, 9u);
    const int null = open("/dev/null", O_RDONLY | O_CLOEXEC);
    const int lowest = dup(null);
    close(lowest);
    poller.init();  // takes that number
    auto ev = add(EVENT_STATE_READ, 0);
    ev->raise();
    dup2(null, lowest);
    close(null);
    const test::CaptureLogger log;
    start_ms = monotonic_ms();
    EXPECT_FALSE(poller.wait(10)) << "it isn't broken";
    EXPECT_EQ(log.count("Failed to get events"), 0) << "that is for the step to tell that serves";
    EXPECT_GE(monotonic_ms() - start_ms, 9u);
}

TEST_F(PollerTest, AnEventThatIsDoneEndsWithItsCallbacksAndItsLastReference) {
    auto ev = add(EVENT_STATE_READ, 0);
    std::string calls;
    ev->add_completion_cb([&](Event* self) {
        self->add_completion_cb([](Event*) {});
        calls += '1';
    });
    ev->add_completion_cb([&](Event*) { calls += '2'; });
    ev->raise();
    const std::weak_ptr<Event> watch = ev;
    ev.reset();
    EXPECT_TRUE(poller.wait(0)) << "waiting consumes nothing";
    EXPECT_TRUE(poller.handle_pending_events(0));
    EXPECT_EQ("12", calls);
    EXPECT_TRUE(watch.expired());
}

TEST_F(PollerTest, ATimeOutIsNotRememberedByTheNextRegistration) {
    auto ev = add(EVENT_STATE_READ, 1, remember());
    EXPECT_TRUE(poller.handle_pending_events(5000));
    EXPECT_EQ(EVENT_EXPIRE_TIMEOUT, seen);
    EXPECT_TRUE(poller.exists(ev.get()));
    EXPECT_FALSE(poller.wait(10));
    ev->raise();
    EXPECT_TRUE(poller.handle_pending_events(0));
    EXPECT_EQ(EVENT_EXPIRE_READY, seen);
}

TEST_F(PollerTest, WhatAWaitHasSeenIsLookedAtAnew) {
    auto ev = add(EVENT_STATE_READ, 1, remember());
    EXPECT_TRUE(poller.wait(5000));
    ev->raise();
    EXPECT_TRUE(poller.handle_pending_events(0));
    EXPECT_EQ(EVENT_EXPIRE_READY, seen);
    EXPECT_TRUE(poller.look_ahead(0));
    ev->drain();
    poller.forget_look_ahead();
    EXPECT_FALSE(poller.handle_pending_events(0));
}

TEST_F(PollerTest, AnEventInWriteStateIsNotWokenByItsTimer) {
    auto ev = std::make_shared<FdEvent>();
    ev->fill();
    poller.add(ev, EVENT_STATE_WRITE, 1);
    EXPECT_FALSE(poller.wait(20));
    ev->drain();
    EXPECT_TRUE(poller.wait(0));
}

TEST_F(PollerTest, ABatchIsServedWholeWithTheLastReadyFirstAndTimersLast) {
    std::string order;
    const auto named = [&](const std::string& name) {
        return [&order, name](FdEvent& self, EventExpireReason reason) {
            order += name + (reason == EVENT_EXPIRE_TIMEOUT ? "t " : "r ");
            return self.done();
        };
    };
    auto both = add(EVENT_STATE_READ, 1, named("y"));
    add(EVENT_STATE_READ, 2, named("x"));
    const uint64_t both_expired_ms = monotonic_ms() + 4;
    while (monotonic_ms() < both_expired_ms)
        continue;
    auto a = add(EVENT_STATE_READ, 0, named("a")), b = add(EVENT_STATE_READ, 0, named("b"));
    auto late = add(EVENT_STATE_READ, 0, named("l"));
    for (const auto& ev : {both, a, b})
        ev->raise();
    EXPECT_TRUE(poller.handle_pending_events(0));
    late->raise();
    while (poller.handle_pending_events(0)) {
    }
    EXPECT_EQ("br ar yr xt lr ", order);
}

TEST_F(PollerTest, RemovingAnEventThatHasFiredPurgesItsEntry) {
    test::CaptureLogger log;
    auto victim = add(EVENT_STATE_READ, 0);
    auto remover = add(EVENT_STATE_READ, 0, [&](FdEvent& self, EventExpireReason) {
        EXPECT_TRUE(poller.remove(victim.get()));
        EXPECT_FALSE(poller.remove(victim.get()));
        return self.resched(0u);
    });
    victim->raise();
    remover->raise();
    EXPECT_TRUE(poller.handle_pending_events(0));
    remover->drain();
    EXPECT_FALSE(poller.handle_pending_events(0));
    EXPECT_EQ(0, victim->runs);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(PollerTest, AddingADescriptorTwiceKeepsTheFirstRegistration) {
    auto ev = add(EVENT_STATE_READ, 0);
    EXPECT_EQ(std::string("failed to add event to poller : ") + std::strerror(EEXIST),
              test::error_of([&] { poller.add(ev, EVENT_STATE_WRITE, 1); }));
    EXPECT_FALSE(poller.wait(10));
    ev->raise();
    EXPECT_TRUE(poller.handle_pending_events(0));
}

TEST(Poller, AnEventThatDiesWithItOrWhileItIsClearedMayRemoveAnother) {
    struct Owner : FdEvent {
        EventPoller* poller = nullptr;
        const Event* owned = nullptr;
        ~Owner() override { poller->remove(owned); }
    };
    for (const bool cleared : {true, false}) {
        auto owned = std::make_shared<FdEvent>();
        {
            EventPoller poller;
            auto owner = std::make_shared<Owner>();
            owner->poller = &poller;
            owner->owned = owned.get();
            poller.add(owner, EVENT_STATE_READ, 0);
            poller.add(owned, EVENT_STATE_READ, 60000);
            owner.reset();
            if (cleared) poller.clear();
        }
        EXPECT_EQ(1, owned.use_count());
    }
}

class FnTask : public Task {
 public:
    FnTask(std::string name, std::function<int()> fn, int32_t hog_ms)
        : Task(hog_ms), m_name(std::move(name)), m_fn(std::move(fn)) {}
    int execute() override { return m_fn(); }
    std::string get_name() const override { return m_name; }

 private:
    std::string m_name;
    std::function<int()> m_fn;
};

class SchedulerTest : public testing::Test {
 protected:
    static int busy_for(unsigned ms) {
        const uint64_t end_ms = monotonic_ms() + ms;
        while (monotonic_ms() < end_ms)
            continue;
        return 1000;
    }
    std::shared_ptr<Task> add(const std::string& name, std::function<int()> fn, int32_t hog_ms = 0) {
        std::shared_ptr<Task> task = std::make_shared<FnTask>(name, std::move(fn), hog_ms);
        sched.add(task, 0);
        return task;
    }
    std::shared_ptr<FdEvent> add_event(FdEvent::work work = {}) {
        auto ev = std::make_shared<FdEvent>(std::move(work));
        sched.add(ev, EVENT_STATE_READ, 0);
        return ev;
    }
    Json::Value stats() {
        Json::Value out;
        sched.stats(out);
        return out["tasks"];
    }

    Scheduler sched;
};

TEST_F(SchedulerTest, StartsWithTheEventPollerTaskDueAtOnce) {
    EXPECT_EQ("Event Poller", stats()["tasks"][0]["name"]);
    EXPECT_EQ(-1, stats()["tasks"][0]["last_ms"].asInt());
    EXPECT_EQ(0, sched.step());
    const int wait_ms = sched.step();
    EXPECT_GT(wait_ms, 50);
    EXPECT_LE(wait_ms, Scheduler::MAX_WAIT_TIME_MS);
    EXPECT_GE(stats()["tasks"][0]["last_ms"].asInt(), 0);
    sched.clear();
    EXPECT_EQ(-1, sched.step());
    EXPECT_EQ(Json::arrayValue, stats()["tasks"].type());
}

TEST_F(SchedulerTest, RunsOneDueTaskAStepInOrderOfInsertionAndBeforeAnyEvent) {
    sched.clear();
    std::string order;
    add_event([&](FdEvent& self, EventExpireReason) { return order += 'e', self.done(); })->raise();
    for (const char name : {'a', 'b', 'c'})
        add({name}, [&order, name] { return order += name, -1; });
    for (const char* expected : {"a", "ab", "abc", "abce"}) {
        EXPECT_EQ(0, sched.step());
        EXPECT_EQ(expected, order);
    }
    EXPECT_EQ(-1, sched.step());
}

TEST_F(SchedulerTest, ARunningTaskIsOutOfTheQueue) {
    sched.clear();
    std::shared_ptr<Task> task = add("self", [&] {
        EXPECT_FALSE(sched.exists(task.get()));
        EXPECT_FALSE(sched.remove(task.get()));
        return 1000;
    });
    EXPECT_EQ(0, sched.step());
    EXPECT_TRUE(sched.exists(task.get()));
    EXPECT_TRUE(sched.remove(task.get()));
    EXPECT_EQ(2u, stats()["removes"].asUInt());  // the other one was the poller's task
    EXPECT_EQ(1, task.use_count());
}

TEST_F(SchedulerTest, ReportsATaskOnlyWhenItOverrunsItsBudget) {
    test::CaptureLogger log(Logger::WARN);
    sched.clear();
    const std::tuple<const char*, unsigned, int32_t> tasks[] = {
        {"no budget", 5, 0}, {"in time", 0, 60000}, {"hog", 20, 5}};
    for (const auto& [name, ms, budget_ms] : tasks) {
        add(
            name, [ms = ms] { return busy_for(ms); }, budget_ms);
        sched.step();
    }
    for (const Json::Value& task : stats()["tasks"])
        EXPECT_EQ(task["name"] == "hog" ? 1u : 0u, task["hogs"].asUInt()) << task["name"].asString();
    const Json::Value hog = stats()["tasks"][2];
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

TEST_F(SchedulerTest, EventsAreServedUnderAConstantLoadOfDueTasks) {
    add("busy", [] { return 0; });
    add_event([&](FdEvent& self, EventExpireReason) { return sched.stop(7), self.done(); })->raise();
    EXPECT_EQ(7, sched.run());
}

TEST_F(SchedulerTest, AStepServesTwoEventsEvenIfTheFirstStopsTheLoop) {
    EXPECT_EQ(0, sched.step());  // the poller's own task, which is due at once
    auto ev = add_event([&](FdEvent& self, EventExpireReason) { return sched.stop(7), self.resched(0U); });
    ev->raise();
    EXPECT_EQ(7, sched.run());
    EXPECT_EQ(2, ev->runs);
}

TEST_F(SchedulerTest, StoppingRunsTheCallbackBeforeEverythingIsCleared) {
    EXPECT_THROW(sched.stop(Scheduler::CAUSE_RUNNING), Exception);
    add("stop", [&] { return sched.stop(3), -1; });
    auto waiting = add("waiting", [] { return -1; });
    auto ev = add_event();
    int cause = 0;
    sched.register_to_scheduler_event(Scheduler::SCHED_EVENT_STOP, [&](int value) {
        sched.register_to_scheduler_event(Scheduler::SCHED_EVENT_STOP, nullptr);
        cause = value;
        EXPECT_TRUE(sched.exists(waiting.get()));
        EXPECT_TRUE(sched.exists(ev.get()));
    });
    sched.register_to_scheduler_event(static_cast<Scheduler::event_e>(1), nullptr);
    EXPECT_EQ(3, sched.run());
    EXPECT_EQ(3, cause);
    EXPECT_FALSE(sched.exists(waiting.get()));
    EXPECT_FALSE(sched.exists(ev.get()));
}

TEST_F(SchedulerTest, AnExceptionEndsTheLoopAndOneInTheCallbackIsSwallowed) {
    test::CaptureLogger log;
    int cause = 0;
    sched.register_to_scheduler_event(Scheduler::SCHED_EVENT_STOP, [&](int value) {
        cause = value;
        throw Exception("100% broken");
    });
    add("thrower", []() -> int { throw Exception("no"); });
    EXPECT_EQ(Scheduler::CAUSE_EXCEPTION, sched.run());
    EXPECT_EQ(Scheduler::CAUSE_EXCEPTION, cause);
    EXPECT_EQ(1, log.count("Error on shutdown: 100% broken"));
}

TEST_F(SchedulerTest, ATaskThatIsAddedAgainMovesToItsNewTime) {
    auto first = add("first", [] { return -1; });
    auto second = add("second", [] { return -1; });
    sched.add(first, 60000);
    sched.add(second, 30000);
    const Json::Value tasks = stats()["tasks"];
    ASSERT_EQ(3u, tasks.size());
    EXPECT_EQ("second", tasks[1]["name"].asString());
    EXPECT_EQ("first", tasks[2]["name"].asString());
}

TEST_F(SchedulerTest, AnEventThatATaskHasUsedUpIsNotServed) {
    EXPECT_EQ(0, sched.step());  // the poller's own task, which is due at once
    auto used_up = add_event();
    auto first = add_event([&](FdEvent& self, EventExpireReason) {
        used_up->raise();
        busy_for(5);  // the task becomes due before the loop sees that
        return self.done();
    });
    first->raise();
    int rounds = 0;
    add("drain", [&] {
        used_up->drain();
        if (first->runs > 0 && ++rounds == 2) sched.stop(0);
        return 1;
    });
    sched.run();
    EXPECT_EQ(0, used_up->runs);
}

Scheduler* g_interrupted = nullptr;

TEST_F(SchedulerTest, ASignalEndsAWait) {
    sched.clear();  // with nothing to do at all the loop sleeps a whole second
    g_interrupted = &sched;
    const auto before = std::signal(SIGALRM, [](int) { g_interrupted->stop(5); });
    ualarm(10000, 0);
    const uint64_t start_ms = monotonic_ms();
    EXPECT_EQ(5, sched.run());
    EXPECT_LT(monotonic_ms() - start_ms, 900u);
    std::signal(SIGALRM, before);
}

}  // namespace
}  // namespace corvo
