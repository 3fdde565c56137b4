// Live traffic and the real daemon, in a network namespace of their own.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "support/daemon.h"
#include "support/net_namespace.h"
#include "tools/captures/sample_flows.h"

namespace test {
namespace {

TEST(Live, TrafficOfAnAttachedInterfaceIsCountedExportedAndWatched) {
    const NetNamespace net;
    if (!net.entered()) GTEST_SKIP() << "no network namespace: " << strerror(errno);
    Daemon daemon({.args = {"-a", "--attach", "lo"}, .engine_dir = OUR_ENGINE_DIR});
    EXPECT_EQ(daemon.result("status")["state"], "activated (attached)");
    const Bytes& frame = sample_flow("dns").frames[0];
    net.send_datagrams(53, {frame.begin() + 42, frame.end()}, 3);
    EXPECT_TRUE(eventually([&] {
        const Json::Value sample =
            daemon.result("collect", parse(R"({"cmd":"show","component":"protocols"})"));
        return sample["open"]["DNS"]["packets"].asUInt() == 3;
    }));

    Json::Value exporter = parse(R"({"cmd":"set_exporter","socket":{"type":"file"}})");
    exporter["socket"]["path"] = daemon.dir().file("samples");
    daemon.result("collect", exporter);
    daemon.result("collect", parse(R"({"cmd":"set_interval","component":"protocols","interval":100})"));
    daemon.result("collect", parse(R"({"cmd":"enable","component":"protocols"})"));
    EXPECT_TRUE(eventually([&] {
        const std::string lines = read_file(daemon.dir().file("samples"));
        return std::count(lines.begin(), lines.end(), '\n') > 2 &&
               lines.find("\"DNS\":{") != std::string::npos;
    }));

    EXPECT_EQ(daemon.result("health", parse(R"({"cmd":"show"})"))["items"]["flow_table"], "ok");
    NetNamespace::set_loopback(false);
    EXPECT_TRUE(daemon.wait_for_log("Engine error 'interface 'lo' can't be captured from: Network is down'"));
    EXPECT_EQ(daemon.stop(), 0);
}

TEST(Live, AFailingExporterIsANotificationOfTheDaemon) {
    Daemon daemon({.args = {"-a"}, .engine_dir = OUR_ENGINE_DIR});
    daemon.result("collect", parse(R"({"cmd":"set_exporter",
        "socket":{"type":"http","server":"127.0.0.1","port":1,"path":"/"}})"));
    daemon.result("collect", parse(R"({"cmd":"set_interval","component":"flows","interval":100})"));
    daemon.result("collect", parse(R"({"cmd":"enable","component":"flows"})"));
    EXPECT_TRUE(eventually([&] {
        const Json::Value alerts =
            daemon.result("notifications", parse(R"({"cmd":"alerts"})"))["notif"]["alerts"];
        return !alerts.empty() && alerts[0]["name"] == "export.failed";
    }));
}

}  // namespace
}  // namespace test
