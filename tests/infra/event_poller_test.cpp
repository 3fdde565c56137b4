#include "infra/corvo_event_poller.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

#include "infra/fd_event.h"
#include "support/capture_logger.h"
#include "utils/clock.h"
#include "utils/exception.h"
#include "utils/unique_fd.h"

namespace corvo {
namespace {

using test::FdEvent;
using testing::ElementsAre;

TEST(EventPoller, MapsEachStateToItsEpollFlags) {
    const std::pair<uint32_t, uint32_t> cases[] = {
        {EVENT_STATE_NONE, 0x2002},       {1, 0x2002},
        {EVENT_STATE_READ, 0x2003},       {EVENT_STATE_WRITE, 0x2006},
        {EVENT_STATE_READ_WRITE, 0x2007}, {5, 0x2002}};
    for (const auto& [state, flags] : cases)
        EXPECT_EQ(flags, EventPoller::conv_state_to_flags(static_cast<EventState>(state))) << state;
}

TEST(EventPoller, WithoutEventsServesNothingAndSleepsTheWholeWait) {
    EventPoller poller;
    EXPECT_FALSE(poller.handle_pending_events(1000));
    const uint64_t start_ms = monotonic_ms();
    EXPECT_FALSE(poller.wait(10));
    EXPECT_GE(monotonic_ms() - start_ms, 9u);
}

TEST(EventPoller, AnEventThatIsDoneEndsWithItsCallbacksAndItsLastReference) {
    EventPoller poller;
    auto ev = std::make_shared<FdEvent>();
    std::vector<int> calls;
    ev->add_completion_cb([&](Event*) { calls.push_back(1); });
    ev->add_completion_cb([&](Event*) { calls.push_back(2); });
    poller.add(ev, EVENT_STATE_READ, 0);
    ev->raise();
    const std::weak_ptr<Event> watch = ev;
    ev.reset();

    EXPECT_TRUE(poller.wait(0)) << "waiting consumes nothing";
    EXPECT_TRUE(poller.handle_pending_events(0));
    EXPECT_THAT(calls, ElementsAre(1, 2));
    EXPECT_TRUE(watch.expired());
}

TEST(EventPoller, ATimeOutIsNotRememberedByTheNextRegistration) {
    EventPoller poller;
    EventExpireReason seen = EVENT_EXPIRE_READY;
    auto ev = std::make_shared<FdEvent>([&](FdEvent& self, EventExpireReason reason) {
        seen = reason;
        return self.resched(0u);
    });
    poller.add(ev, EVENT_STATE_READ, 1);
    EXPECT_TRUE(poller.handle_pending_events(5000));
    EXPECT_EQ(EVENT_EXPIRE_TIMEOUT, seen);
    EXPECT_TRUE(poller.exists(ev.get()));
    EXPECT_FALSE(poller.wait(10));
    ev->raise();
    EXPECT_TRUE(poller.handle_pending_events(0));
    EXPECT_EQ(EVENT_EXPIRE_READY, seen);
}

TEST(EventPoller, AnEventInWriteStateIsNotWokenByItsTimer) {
    EventPoller poller;
    auto ev = std::make_shared<FdEvent>();
    ev->fill();
    poller.add(ev, EVENT_STATE_WRITE, 1);
    EXPECT_FALSE(poller.wait(20));
    ev->drain();
    EXPECT_TRUE(poller.wait(0));
}

TEST(EventPoller, ABatchIsServedWholeWithTheLastReadyFirstAndTimersLast) {
    EventPoller poller;
    std::string order;
    const auto make = [&](char name) {
        return std::make_shared<FdEvent>([&order, name](FdEvent& self, EventExpireReason reason) {
            order += name;
            order += reason == EVENT_EXPIRE_TIMEOUT ? "t " : "r ";
            return self.done();
        });
    };
    auto timed = make('x'), both = make('y'), a = make('a'), b = make('b'), late = make('l');
    poller.add(both, EVENT_STATE_READ, 1);
    poller.add(timed, EVENT_STATE_READ, 2);
    const uint64_t both_expired_ms = monotonic_ms() + 4;
    while (monotonic_ms() < both_expired_ms)
        continue;
    for (const auto& ev : {a, b, late})
        poller.add(ev, EVENT_STATE_READ, 0);
    for (const auto& ev : {both, a, b})
        ev->raise();

    EXPECT_TRUE(poller.handle_pending_events(0));
    late->raise();
    while (poller.handle_pending_events(0)) {
    }
    EXPECT_EQ("br ar yr xt lr ", order);
}

TEST(EventPoller, TakesTwentyDescriptorsAtOnce) {
    EventPoller poller;
    std::vector<std::shared_ptr<FdEvent>> events(21);
    for (auto& ev : events) {
        ev = std::make_shared<FdEvent>([](FdEvent& self, EventExpireReason) { return self.done(); });
        poller.add(ev, EVENT_STATE_READ, 0);
        ev->raise();
    }
    EXPECT_TRUE(poller.handle_pending_events(0));
    EXPECT_EQ(1, events[19]->runs);
    for (int i = 0; i < 19; ++i)
        poller.handle_pending_events(0);
    EXPECT_EQ(1, events[0]->runs);
    EXPECT_EQ(0, events[20]->runs);
}

TEST(EventPoller, RemovingAnEventThatHasFiredPurgesItsEntry) {
    test::CaptureLogger log;
    EventPoller poller;
    auto victim = std::make_shared<FdEvent>();
    auto remover = std::make_shared<FdEvent>([&](FdEvent& self, EventExpireReason) {
        EXPECT_TRUE(poller.remove(victim.get()));
        EXPECT_FALSE(poller.remove(victim.get()));
        return self.resched(0u);
    });
    poller.add(victim, EVENT_STATE_READ, 0);
    poller.add(remover, EVENT_STATE_READ, 0);
    victim->raise();
    remover->raise();
    EXPECT_TRUE(poller.handle_pending_events(0));
    remover->drain();
    EXPECT_FALSE(poller.handle_pending_events(0));
    EXPECT_EQ(0, victim->runs);
    EXPECT_TRUE(log.lines().empty());
}

TEST(EventPoller, AddingADescriptorTwiceKeepsTheFirstRegistration) {
    EventPoller poller;
    auto ev = std::make_shared<FdEvent>();
    poller.add(ev, EVENT_STATE_READ, 0);
    try {
        poller.add(ev, EVENT_STATE_WRITE, 1);
        FAIL() << "added twice";
    } catch (const Exception& e) {
        EXPECT_EQ(std::string("failed to add event to poller : ") + std::strerror(EEXIST), e.what());
    }
    EXPECT_FALSE(poller.wait(10));
    ev->raise();
    EXPECT_TRUE(poller.handle_pending_events(0));
}

TEST(EventPoller, AnEventThatDiesWhileTheTablesAreClearedMayRemoveAnother) {
    struct Owner : FdEvent {
        EventPoller* poller = nullptr;
        const Event* owned = nullptr;
        ~Owner() override { poller->remove(owned); }
    };
    EventPoller poller;
    auto owned = std::make_shared<FdEvent>();
    auto owner = std::make_shared<Owner>();
    owner->poller = &poller;
    owner->owned = owned.get();
    poller.add(owner, EVENT_STATE_READ, 0);
    poller.add(owned, EVENT_STATE_READ, 60000);
    owner.reset();
    poller.clear();
    EXPECT_EQ(1, owned.use_count());
}

TEST(EventPollerDeathTest, AnUnknownActionIsAProgrammingFault) {
    EventPoller poller;
    auto ev = std::make_shared<FdEvent>([](FdEvent&, EventExpireReason) {
        return EventRC{2, 0, EVENT_STATE_NONE};
    });
    poller.add(ev, EVENT_STATE_READ, 0);
    ev->raise();
    EXPECT_DEATH(poller.handle_pending_events(0), "unknown event action");
}

}  // namespace
}  // namespace corvo
