// Several workers: what they share out, and what holds them up. With the real clock, as they read it by
// themselves.
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <unistd.h>

#include <csignal>
#include <future>
#include <random>
#include <set>

#include "engine.h"
#include "engine/pushed.h"
#include "engine_error.h"
#include "flow_summary.h"
#include "support/client.h"
#include "support/error_of.h"
#include "support/net_namespace.h"
#include "tools/captures/sample_flows.h"

namespace corvo::engine {
namespace {

using std::chrono::milliseconds;
using test::error_of;
using test::eventually;
using test::Pushed;

/** All that a path tells of its flows and hosts at once, sorted, without times. */
std::string reports_of(NamedPath& path) {
    std::string out = summarize(path, false, true).toStyledString();
    std::set<std::string> rows;
    for (const char* member : {"flows", "hosts"}) {
        const bool hosts = member == std::string("hosts");
        Json::Value page = hosts ? path.lists.hosts(1000) : path.lists.flows({}, 1000);
        for (;; page = path.lists.next(member, page["cursor"].asString(), 1000)) {
            for (Json::Value& row : page[member]) {
                row.removeMember("first_seen");
                row.removeMember("last_seen");
                rows.insert(row.toStyledString());
            }
            if (!page.isMember("cursor")) break;
        }
    }
    for (const std::string& row : rows)
        out += row;
    return out;
}

/**
 * What an engine with so many workers makes of all sample flows, pushed to a path, as one text. `answers`:
 * with that of each packet.
 */
std::string outcome(uint16_t workers, const std::string& dpaddr, bool answers) {
    Engine engine{{}};
    engine.activate({1000, workers, false});
    if (!answers || (workers == 2 && !dpaddr.empty())) engine.open(dpaddr, answers);
    std::string out;
    for (const test::SampleFlow& flow : test::sample_flows()) {
        Pushed pushed(flow.frames);
        engine.push(dpaddr, pushed.pkts, true);
        if (!answers) continue;
        for (const api::pkt_& pkt : pushed.pkts) {
            out += pkt.protocol + " " + std::to_string(pkt.cls) + " " + std::to_string(pkt.error);
            for (const std::string& attribute : pkt.attr)
                out += " " + attribute;
            out += "\n";
        }
    }
    {
        const Workers::Pause pause = engine.pause();
        out += reports_of(engine.path_of(dpaddr));
    }
    for (const char* sample : {"flows", "protocols", "interfaces"}) {
        Json::Value counted = engine.sample(sample);
        counted.removeMember("time");
        out += counted.toStyledString();
    }
    for (const uint32_t limit : {5, 100}) {
        const std::string dump = engine.coffee(dpaddr, "dp.ft.dump", {limit});
        out += std::to_string(std::count(dump.begin(), dump.end(), '\n')) + " ";
    }
    return out + engine.coffee(dpaddr, "dp.ft.sui_ft_kill_all_flows", {}) +
           engine.coffee(dpaddr, "dp.ft.count", {});
}

TEST(Workers, GiveTheSameAnswersTogetherAsOneAlone) {
    for (const auto& [dpaddr, answers] : {std::pair("", true), {"capture:a", true}, {"capture:a", false}}) {
        const std::string alone = outcome(1, dpaddr, answers);
        EXPECT_THAT(alone, testing::HasSubstr("16 flows removed"));
        for (const uint16_t workers : {0, 2, 5})
            EXPECT_EQ(outcome(workers, dpaddr, answers), alone)
                << workers << " workers, path '" << dpaddr << "'";
    }
}

/** Packets of 400 conversations, `round` by `round`; few are alike in size. */
Pushed conversations(int round) {
    Pushed out({});
    for (int i = 0; i < 400; i++) {
        const test::Path path{"10.0.0.1", "10.0.1.1", static_cast<uint16_t>(5000 + i), 9};
        out.add(test::udp_frame(round % 2 ? path.reversed() : path, test::Bytes((7 * i + round) % 1400)), 3);
    }
    return out;
}

TEST(Workers, MissNoneOfThePacketsThatTheyAreLeft) {
    std::string alone;
    for (const uint16_t workers : {1, 2, 3}) {
        Engine engine{{}};
        engine.activate({1000, workers, false});
        engine.open("capture:a", false);
        for (int round = 0; round < 60; round++) {  // twice the size of all backlogs
            Pushed pushed = conversations(round);
            engine.push("capture:a", pushed.pkts, true);
        }
        const std::string reports = (engine.pause(), reports_of(engine.path_of("capture:a")));
        if (workers == 1) alone = reports;
        EXPECT_EQ(reports, alone) << workers << " workers";
        EXPECT_THAT(reports, testing::HasSubstr("\"packets\" : 24000"));
        Pushed pushed = conversations(0);
        const auto kill = [&] { return engine.coffee("capture:a", "dp.ft.sui_ft_kill_all_flows", {}); };
        for (int i = 0; i < 2; i++) {
            EXPECT_EQ(kill(), "400 flows removed");
            engine.push("capture:a", pushed.pkts, false);
        }
        engine.deactivate();  // while they are waiting
    }
}

TEST(Workers, ProcessByThemselvesWhatIsWorthWakingThem) {
    Classifiers classifiers;
    DataPath live(classifiers, 100);
    DataPath capture(classifiers, 1000, DataPath::CAPTURE);
    CaptureLane lane;
    Worker worker("dp-worker-1", lane, live, Backlog::LEAST_BYTES);
    const Pushed pushed = conversations(0);  // more than there is room for
    for (int round = 0; round < 3; round++) {
        for (const api::pkt_& pkt : pushed.pkts)
            worker.leave(capture, pkt);
        worker.see_to_them();
        EXPECT_TRUE(eventually([&] { return worker.waiting() == 0; })) << worker.waiting();
    }
}

TEST(Backlog, KeepsPacketsInOrderHoweverItWraps) {
    Classifiers classifiers;
    DataPath direct(classifiers, 1000, DataPath::CAPTURE, test::fake_clock);
    DataPath delayed(classifiers, 1000, DataPath::CAPTURE, test::fake_clock);
    Backlog backlog(Backlog::LEAST_BYTES);
    std::mt19937 random(1);
    test::g_now_ms = 1;
    int refused = 0;
    for (int round = 0; round < 40; round++) {
        Pushed pushed = conversations(round);
        pushed.add(test::Bytes(round % 3 ? 65535 : 0));
        direct.push(pushed.pkts, false);
        for (const api::pkt_& pkt : pushed.pkts) {
            for (; !backlog.add(delayed, pkt); refused++) {
                backlog.publish();
                backlog.work_off(random() % 100000, 1);
            }
        }
    }
    EXPECT_GT(refused, 20);
    backlog.work_off(backlog.size(), 1);
    EXPECT_LT(delayed.pushed().packets, direct.pushed().packets) << "not yet published";
    backlog.publish();
    backlog.work_off(backlog.size(), 1);
    EXPECT_EQ(backlog.waiting(), 0u);
    EXPECT_EQ(delayed.pushed().bytes, direct.pushed().bytes);
    EXPECT_EQ(delayed.dump(1000), direct.dump(1000));
    EXPECT_EQ(delayed.errors(api::PKT_NON_IP), direct.errors(api::PKT_NON_IP));
}

TEST(Workers, AreAsManyAsThereAreFlowsAndShareTheTable) {
    Classifiers classifiers;
    for (const auto& [flows, workers, shards] : {std::tuple(3U, 128U, 3U), std::tuple(200U, 40U, 40U),
                                                 std::tuple(100U, 3U, 3U), std::tuple(9U, 0U, 1U)}) {
        const Shards shared(classifiers, flows, workers, DataPath::LIVE, monotonic_ms);
        EXPECT_EQ(shared.count(), shards);
        uint32_t room = 0;
        for (unsigned i = 0; i < shared.count(); i++)
            room += shared.at(i).table().max_flows();
        EXPECT_EQ(room, flows);
    }
    Engine engine{{}};
    engine.activate({1000, 128, false});
    EXPECT_EQ(engine.sample("flows")["max"].asInt(), 1000);
    engine.deactivate();
}

/** Two workers with a data path of theirs, whose flows are reported to us. */
class WorkersOfOurs : public testing::Test, protected FlowWatcher {
 protected:
    WorkersOfOurs() {
        interfaces.make_worker_lanes(2);
        workers = std::make_unique<Workers>(interfaces, shards);
    }
    void report(Flow&, const Classifier&, why_e) noexcept override {}
    bool is_due(const Flow&, uint64_t) const override {
        pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
        sigaltstack(nullptr, &stack);
        asked = true;
        released.wait(false);
        return false;
    }
    void hang() {
        const Workers::Pause pause = workers->pause();
        Pushed dns(test::sample_flow("dns").frames);
        shards.watch(this);
        shards.push(dns.pkts, false);
    }

    mutable sigset_t blocked;
    mutable stack_t stack;
    mutable std::atomic<bool> asked = false;
    std::atomic<bool> released = false;
    Interfaces interfaces{PacketRing::MIN_BYTES};
    Classifiers classifiers;
    Shards shards{classifiers, 100, 2, DataPath::LIVE, monotonic_ms};
    std::unique_ptr<Workers> workers;
};

TEST_F(WorkersOfOurs, ThatHangHoldUpWhoNeedsThemAndAreNamed) {
    hang();
    ASSERT_TRUE(eventually([this] { return asked.load(); }));
    auto pause = std::async(std::launch::async, [this] { workers->pause(); });
    EXPECT_EQ(pause.wait_for(milliseconds(50)), std::future_status::timeout);
    EXPECT_THAT(error_of<Error>([this] { workers->end(); }),
                testing::MatchesRegex("not all workers end within a second, these don't: [12](, 2)?"));
    released = true;
    released.notify_all();
    pause.get();
    EXPECT_EQ(error_of<Error>([this] { workers->end(); }), "");
}

TEST_F(WorkersOfOurs, TakeNoSignalsButForTheirFaultsAndThoseOnAStackOfTheirOwn) {
    released = true;
    hang();
    ASSERT_TRUE(eventually([this] { return asked.load(); }));
    workers->end();
    EXPECT_FALSE(stack.ss_flags & SS_DISABLE);
    for (const auto& [signal, is_blocked] :
         {std::pair(SIGTERM, 1), std::pair(SIGUSR1, 1), std::pair(SIGSEGV, 0)})
        EXPECT_EQ(sigismember(&blocked, signal), is_blocked) << signal;
}

/** A socket of 127.0.0.1 with a port of its own. */
class Peer {
 public:
    Peer() : m_fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        m_address.sin_family = AF_INET;
        m_address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof m_address;
        auto* generic = reinterpret_cast<sockaddr*>(&m_address);
        if (bind(m_fd.get(), generic, size) < 0 || getsockname(m_fd.get(), generic, &size) < 0)
            throw Error("no port");
    }
    void send(const Peer& to, const std::string& text) const {
        sendto(m_fd.get(), text.data(), text.size(), 0, reinterpret_cast<const sockaddr*>(&to.m_address),
               sizeof to.m_address);
    }

 private:
    OwnedFd m_fd;
    sockaddr_in m_address{};
};

TEST(LiveWorkers, ShareAnInterfaceByFlowAndUseItAgainWhenItIsBack) {
    const test::NetNamespace net;
    if (!net.entered()) GTEST_SKIP() << "no network namespace: " << strerror(errno);
    constexpr int FLOWS = 60;
    Engine engine{{}};
    std::string problem;
    const auto lo = [&] {
        engine.tick(problem);
        return engine.sample("interfaces")["interfaces"][0];
    };
    const auto packets = [&] { return lo()["packets"].asInt(); };
    const auto readable = [&engine](int timeout_ms) {
        pollfd waiting{engine.event_fd(), POLLIN, 0};
        return poll(&waiting, 1, timeout_ms) == 1;
    };
    Peer clients[FLOWS];
    Peer server;
    for (const uint16_t workers : {3, 1}) {
        SCOPED_TRACE(workers);
        engine.activate({1000, workers, false});
        engine.attach("lo");
        for (int round = 1; round <= 2; round++) {
            for (const Peer& client : clients) {
                client.send(server, "ask");
                server.send(client, "answer");
            }
            EXPECT_TRUE(workers > 1 || readable(10000)) << "nobody else would take them";
            ASSERT_TRUE(eventually([&] { return packets() >= round * 2 * FLOWS; })) << packets();
            EXPECT_EQ(packets(), round * 2 * FLOWS) << "some were seen by two";
            EXPECT_EQ(engine.sample("flows")["created"].asInt(), FLOWS)
                << "a flow's directions were torn apart";
            if (round == 2) break;
            net.set_loopback(false);
            ASSERT_TRUE(eventually([&] { return engine.tick(problem), !problem.empty(); }));
            EXPECT_EQ(problem, "interface 'lo' can't be captured from: Network is down");
            for (int i = 0; i < 3; i++, usleep(20000)) {
                engine.tick(problem);
                EXPECT_EQ(problem, "") << "told by each worker";
            }
            ASSERT_TRUE(eventually([&] { return lo()["up"] == false; }));
            EXPECT_EQ(lo()["downs"], 1u);
            EXPECT_FALSE(readable(0)) << "keeps the daemon busy";
            net.set_loopback(true);
            ASSERT_TRUE(eventually([&] { return lo()["up"] == true; }));
        }
        engine.detach("lo");
        engine.attach("lo");
        EXPECT_EQ(packets(), 0);
        engine.deactivate();
        EXPECT_THAT(engine.attached(), testing::IsEmpty());
    }
}

TEST(LiveWorkers, CaptureFromAnInterfaceThatWasRemovedAndHasComeBack) {
    const test::NetNamespace net;
    if (!net.entered()) GTEST_SKIP() << "no network namespace: " << strerror(errno);
    // Each end greets the other as soon as it is up.
    const auto add = [] {
        return system(
                   "ip link add tap type veth peer name feed && ip link set tap up && ip link set feed up") ==
               0;
    };
    for (const uint16_t workers : {1, 3}) {
        Engine engine{{}};
        std::string problem;
        Json::Value now;
        const auto has_become = [&](bool up, int packets) {
            return eventually([&] {
                engine.tick(problem);
                now = engine.sample("interfaces")["interfaces"][0];
                return now["up"] == up && now["packets"].asInt() > packets;
            });
        };
        engine.activate({1000, workers, false});
        ASSERT_TRUE(add());
        engine.attach("tap");
        ASSERT_TRUE(has_become(true, 0));
        ASSERT_EQ(system("ip link del tap"), 0);
        ASSERT_TRUE(has_become(false, 0));
        const int seen = now["packets"].asInt();
        ASSERT_TRUE(add());
        EXPECT_TRUE(has_become(true, seen)) << workers << " workers: " << now.toStyledString();
        ASSERT_EQ(system("ip link del tap"), 0);
    }
}

}  // namespace
}  // namespace corvo::engine
