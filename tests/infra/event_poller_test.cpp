#include "infra/corvo_event_poller.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "infra/fd_event.h"
#include "support/capture_logger.h"
#include "support/error_of.h"
#include "utils/clock.h"

namespace corvo {
namespace {

using test::FdEvent;

class PollerTest : public testing::Test {
 protected:
    /** The poller's share of it is the last one when the result is dropped. */
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

TEST_F(PollerTest, WithoutEventsServesNothingAndSleepsTheWholeWait) {
    EXPECT_FALSE(poller.handle_pending_events(1000));
    const uint64_t start_ms = monotonic_ms();
    EXPECT_FALSE(poller.wait(10));
    EXPECT_GE(monotonic_ms() - start_ms, 9u);
}

TEST_F(PollerTest, ABrokenPollerSleepsTheWaitInsteadOfSpinning) {
    const int null = open("/dev/null", O_RDONLY | O_CLOEXEC);
    const int lowest = dup(null);
    close(lowest);
    poller.init();  // takes that number
    auto ev = add(EVENT_STATE_READ, 0);
    ev->raise();
    dup2(null, lowest);
    close(null);
    const test::CaptureLogger log;
    const uint64_t start_ms = monotonic_ms();
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

}  // namespace
}  // namespace corvo
