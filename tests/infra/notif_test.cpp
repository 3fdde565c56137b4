#include "infra/corvo_notif.h"

#include <gtest/gtest.h>
#include <json/value.h>
#include <unistd.h>

#include <functional>
#include <memory>

#include "infra/corvo_notif_hub.h"
#include "infra/json/corvo_json.h"
#include "support/capture_logger.h"
#include "support/client.h"
#include "support/error_of.h"
#include "support/temp_dir.h"

namespace corvo::notif {
namespace {

using test::error_of;

const notif_t INFO_KIND{"test", "info", SEV_INFO};
const notif_t WARN_KIND{"test", "warn", SEV_WARN};

Json::Value request(const std::string& text) {
    Json::Value params, res(Json::objectValue);
    EXPECT_TRUE(json::parse(text, params)) << text;
    ops(params, res);
    return res;
}

Json::Value socket_request(const std::string& op, const std::string& path) {
    return request(R"({"cmd":"socket","op":")" + op + R"(","socket":")" + path + "\"}");
}

/** The next datagram, empty if there is none. */
std::string received(const test::UnixClient& client) {
    std::string text;
    client.receive(text, 0);
    return text;
}

/** The process has one hub, which each test clears first. */
class Notifications : public testing::Test {
 protected:
    void SetUp() override {
        request(R"({"cmd":"log","op":"clear"})");
        request(R"({"cmd":"alerts","op":"clear"})");
    }
    static Json::Value stored() { return request(R"({"cmd":"log"})")["notif"]["log"]; }
    static Json::Value alerts() { return request(R"({"cmd":"alerts"})")["notif"]["alerts"]; }

    test::TempDir m_dir;
};

TEST_F(Notifications, TheLogKeepsTheLastFiftyWithConsecutiveIds) {
    const uint64_t before = Event::g_id;
    for (int i = 1; i <= 51; ++i)
        notify(INFO_KIND, "%d%%", i);
    const Json::Value events = stored();
    ASSERT_EQ(50u, events.size());
    EXPECT_EQ("2%", events[0]["desc"]);
    EXPECT_EQ("51%", events[49]["desc"]);
    EXPECT_EQ(before + 2, events[0]["id"].asUInt64());
    EXPECT_EQ(before + 51, events[49]["id"].asUInt64());
}

TEST_F(Notifications, AlertsCountWarningsByKind) {
    notify(INFO_KIND);
    EXPECT_EQ(Json::arrayValue, alerts().type());
    for (const notif_t& kind : {WARN_KIND, WARN_KIND, notif_t{"test", "warn", SEV_SEVERE}})
        notify(kind);
    EXPECT_EQ(2u, alerts().size());
    EXPECT_EQ(1u, request(R"({"cmd":"alerts","sev":"error"})")["notif"]["alerts"].size());
    for (const Json::Value& alert : alerts())
        EXPECT_EQ(alert["sev"] == "warn" ? 2u : 1u, alert["count"].asUInt());
    EXPECT_EQ(3u, request(R"({"cmd":"log","sev":"warn"})")["notif"]["log"].size());
}

TEST_F(Notifications, ASubscribedSocketGetsOneLineOfJsonForEachEvent) {
    const test::UnixClient client("");
    const std::string& path = client.path();
    socket_request("add", path);
    Json::Value added;
    ASSERT_TRUE(json::parse(received(client), added));
    EXPECT_EQ("notif.sock.add", added["name"]);
    EXPECT_EQ("socket: '" + path + "'", added["desc"].asString());

    notify(WARN_KIND);
    const Json::Value last = stored()[1];
    EXPECT_EQ(R"({"desc":"","feature":"test","id":)" + last["id"].asString() +
                  R"(,"name":"warn","sev":"warn","ts":)" + last["ts"].asString() + "}",
              received(client));
    socket_request("delete", path);
    EXPECT_EQ("", received(client));
    EXPECT_EQ("notif.sock.del", stored()[2]["name"]);
    EXPECT_EQ("socket: [" + path + "] is not registered for notifications",
              error_of([&] { socket_request("delete", path); }));
}

TEST_F(Notifications, SubscribersThatDoNotTakeAnEventKeepItFromNobodyElse) {
    const std::string gone = m_dir.file("100%s"), dead = m_dir.file("dead");
    {
        // Its socket file stays behind.
        const test::UnixClient client("");
        ASSERT_EQ(0, link(client.path().c_str(), dead.c_str()));
    }
    const test::UnixClient slow(""), healthy("");
    test::CaptureLogger log;
    // Raised while another event is being delivered: dropped, or it would never end.
    log.on_line = [] { notify(INFO_KIND); };
    for (const std::string& path : {gone, dead, slow.path(), healthy.path()})
        socket_request("add", path);
    while (!received(healthy).empty()) {
    }
    const std::string overrun = "Failed notifing '" + slow.path() + "' - [Resource temporarily unavailable]";
    long raised = 4;  // by adding the four
    for (; raised < 10000 && log.count(overrun) < 4; ++raised) {
        notify(INFO_KIND, "%ld", raised);
        EXPECT_EQ(json::write(stored()[stored().size() - 1]), received(healthy));
    }
    EXPECT_EQ(4, log.count(overrun));
    EXPECT_EQ(raised, log.count("Failed notifing '" + gone + "' - [No such file or directory]"));
    EXPECT_EQ(raised - 1, log.count("Failed notifing '" + dead + "' - [Connection refused]"));
    EXPECT_EQ(2 * raised + 3, log.count(""));

    while (!received(slow).empty()) {
    }
    notify(INFO_KIND, "again");
    EXPECT_EQ(received(healthy), received(slow));
    for (const std::string& path : {gone, dead, slow.path(), healthy.path()})
        socket_request("delete", path);
}

TEST_F(Notifications, APathThatNoSocketAddressHoldsIsRefused) {
    const std::string longest(107, 'x');
    socket_request("add", longest);
    socket_request("delete", longest);
    EXPECT_EQ("socket: [" + longest + "x] is too long",
              error_of([&] { socket_request("add", longest + "x"); }));
}

TEST_F(Notifications, ABadRequestIsRefusedBeforeAnythingIsCleared) {
    notify(WARN_KIND);
    EXPECT_EQ("field 'sev' can only be one of ['info' ,'warn' ,'error']",
              error_of([] { request(R"({"cmd":"log","op":"clear","sev":"severe"})"); }));
    EXPECT_NE("", error_of([] { request(R"({"cmd":"alerts","op":"clear","sev":"info"})"); }));
    EXPECT_EQ(1u, stored().size());
    EXPECT_EQ(1u, alerts().size());
}

TEST_F(Notifications, AFormatThatFailsIsLoggedAndRaisesNothing) {
    test::CaptureLogger log;
    const wchar_t not_in_the_c_locale[] = {0x20ac, 0};
    notify(INFO_KIND, "%ls", not_in_the_c_locale);
    EXPECT_EQ(1, log.count("Bad formatting for notification: '%ls'"));
    EXPECT_TRUE(stored().empty());
}

TEST(Hub, ASubscriberMayLeaveAndOthersComeWhileAnEventIsDelivered) {
    struct Sub : Subscriber {
        Sub(const char* uid, std::function<void()> fn)
            : Subscriber(Filter()), m_uid(uid), m_fn(std::move(fn)) {}
        int execute_(const Event&) override {
            m_fn();
            return 0;
        }
        std::string uid() const override { return m_uid; }
        std::string m_uid;
        std::function<void()> m_fn;
    };
    Notif hub;
    std::string told;
    hub.subscribe(std::make_unique<Sub>("leaver", [&] {
        for (const char* uid : {"leaver", "victim"})
            hub.unsubscribe(uid);
        for (const char* uid : {"new", "newer", "newest"})
            hub.subscribe(std::make_unique<Sub>(uid, [&told, uid] { told += std::string(" ") + uid; }));
        told += "leaver";
    }));
    hub.subscribe(std::make_unique<Sub>("victim", [&] { told += " victim"; }));
    hub.subscribe(std::make_unique<Sub>("last", [&] { told += " last"; }));
    for (int i = 0; i < 2; ++i)
        hub.notify(Event("f", "n", SEV_INFO, ""));
    EXPECT_EQ(told, "leaver last last new newer newest");
}

/** The first static object of this file and the last to die: the hub has to be there for both. */
const struct Early {
    Early() { notify(INFO_KIND); }
    ~Early() { notify(WARN_KIND); }
} g_early;

}  // namespace
}  // namespace corvo::notif
