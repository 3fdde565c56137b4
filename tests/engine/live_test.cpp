// Capture of real traffic, in a network namespace that nobody else has.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <cstring>

#include "engine.h"
#include "engine/pushed.h"
#include "engine_error.h"
#include "support/error_of.h"
#include "support/net_namespace.h"
#include "tools/captures/sample_flows.h"

namespace corvo::engine {
namespace {

using test::error_of;
using test::fake_clock;
using test::g_now_ms;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/** The payload of the sample's first packet. */
test::Bytes dns_query() {
    const test::Bytes& frame = test::sample_flow("dns").frames[0];
    return {frame.begin() + 14 + 20 + 8, frame.end()};
}

class LiveTest : public testing::Test {
 protected:
    void SetUp() override {
        if (!net.entered()) GTEST_SKIP() << "no network namespace: " << strerror(errno);
        engine.activate({100, 1, false});
    }
    bool readable() const {
        pollfd waiting{engine.event_fd(), POLLIN, 0};
        return poll(&waiting, 1, 0) == 1;
    }
    std::string tick() {
        std::string problem;
        engine.tick(problem);
        return problem;
    }
    Json::Value loopback() { return engine.sample("interfaces")["interfaces"][0]; }

    test::NetNamespace net;
    Engine engine{{}, fake_clock};
};

TEST_F(LiveTest, SeesEachPacketOnceAndABoundedNumberPerTick) {
    engine.attach("lo");
    EXPECT_FALSE(readable());
    const test::Bytes query = dns_query();
    net.send_datagrams(53, query);
    EXPECT_TRUE(readable());
    EXPECT_EQ(tick(), "");
    EXPECT_FALSE(readable());
    EXPECT_EQ(engine.sample("protocols")["open"]["DNS"]["bytes"], Json::UInt64{query.size() + 42});
    EXPECT_EQ(loopback()["packets"], 1u);
    EXPECT_EQ(loopback()["bytes"], Json::UInt64{query.size() + 42});
    EXPECT_THAT(engine.coffee("", "dp.ft.dump", {}), HasSubstr("ns 0 udp 127.0.0.1:"));

    net.send_datagrams(53, query, 1500);
    tick();
    EXPECT_LT(loopback()["packets"].asUInt64(), 1501u);
    EXPECT_TRUE(readable());
    int ticks = 1;
    for (; readable() && ticks < 100; ticks++)
        tick();
    EXPECT_EQ(loopback()["packets"].asUInt64() + loopback()["drops"].asUInt64(), 1501u);
    EXPECT_LT(ticks, 10);
}

TEST_F(LiveTest, CountsWhatFoundNoRoomInTheKernel) {
    engine.attach("lo");
    net.send_datagrams(9, test::Bytes(60000, 'x'), 300);
    g_now_ms += 1000;
    tick();
    uint64_t drops = loopback()["drops"].asUInt64();
    EXPECT_GT(drops, 0u);
    EXPECT_EQ(engine.health(true)["items"]["drops"]["value"], Json::UInt64{drops});
    engine.detach("lo");
    EXPECT_EQ(engine.health(true)["items"]["drops"]["value"], Json::UInt64{drops});
}

TEST_F(LiveTest, TellsOnceWhenAnInterfaceGoesDownAndUsesItAgainWhenItIsUp) {
    engine.attach("lo");
    net.set_loopback(false);
    EXPECT_TRUE(readable());
    EXPECT_EQ(tick(), "interface 'lo' can't be captured from: Network is down");
    EXPECT_FALSE(readable());
    EXPECT_EQ(tick(), "");
    EXPECT_EQ(loopback()["up"], false);
    EXPECT_EQ(loopback()["downs"], 1u);
    net.set_loopback(true);
    g_now_ms += 1000;
    tick();
    EXPECT_EQ(loopback()["up"], true);
    net.send_datagrams(53, dns_query());
    tick();
    EXPECT_EQ(loopback()["packets"], 1u);
}

TEST_F(LiveTest, RefusesWhatCannotBeAttachedOrDetached) {
    const auto attach = [this](const std::string& name) {
        return error_of<Error>([&] { engine.attach(name); });
    };
    EXPECT_EQ(attach("nil0"), "there is no interface 'nil0'");
    EXPECT_EQ(attach(""), "there is no interface ''");
    EXPECT_EQ(attach(std::string("lo\0x", 4)).substr(0, 24), "there is no interface 'l");
    EXPECT_EQ(error_of<Error>([&] { engine.detach("lo"); }), "interface 'lo' isn't attached");
    EXPECT_EQ(attach("lo"), "");
    EXPECT_EQ(attach("lo"), "interface 'lo' is already attached");
    EXPECT_THAT(engine.attached(), ElementsAre("lo"));
    engine.deactivate();
    EXPECT_THAT(engine.attached(), IsEmpty());
    net.send_datagrams(53, dns_query());
    EXPECT_FALSE(readable());
}

}  // namespace
}  // namespace corvo::engine
