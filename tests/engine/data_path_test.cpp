#include "data_path.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include "engine/pushed.h"
#include "health.h"
#include "tools/captures/sample_flows.h"

namespace corvo::engine {
namespace {

using test::Bytes;
using test::fake_clock;
using test::g_now_ms;
using test::Pushed;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

class DataPathTest : public testing::Test {
 protected:
    static Pushed push_to(DataPath& path, const std::vector<Bytes>& frames, bool extended = false) {
        Pushed pushed(frames);
        path.push(pushed.pkts, extended);
        return pushed;
    }
    Pushed push(const std::vector<Bytes>& frames, bool extended = false) {
        return push_to(path, frames, extended);
    }

    Classifiers classifiers;
    DataPath path{classifiers, UINT32_MAX, DataPath::LIVE, fake_clock};  // the limit itself costs no memory
};

Bytes datagram(uint16_t port) {
    return test::udp_frame({"10.0.0.1", "10.0.0.2", port, 9}, Bytes(60, 0x31));
}

TEST_F(DataPathTest, ClassifiesTheEarlierPacketsOfAFlowInTheSameBatchOnly) {
    const std::vector<Bytes>& frames = test::sample_flow("http").frames;
    Pushed syn = push({frames[0]});
    EXPECT_EQ(syn.pkts[0].cls, 0u);
    EXPECT_EQ(syn.pkts[0].protocol, "");
    Pushed rest = push({frames.begin() + 1, frames.end()});
    for (const api::pkt_& pkt : rest.pkts)
        EXPECT_EQ(pkt.protocol, "HTTP");
}

// nDPI knows the server's address, but the name that comes later belongs to another service.
TEST_F(DataPathTest, ReachesOneVerdictWhoeverAsks) {
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"8.8.8.8", "dns.google", "TLS.DoH_DoT"}, {"52.94.0.1", "www.waze.com", "TLS.Waze"}};
    for (const auto& [address, name, protocol] : cases) {
        const std::vector<Bytes> frames = test::TcpConversation({"10.0.0.1", address, 40000, 443})
                                              .server(test::tls_server_hello())
                                              .client(test::tls_client_hello(name))
                                              .close();
        for (const bool extended : {false, true}) {
            path.kill_all_flows();
            EXPECT_EQ(push(frames, extended).pkts.back().protocol, protocol) << extended;
        }
        DataPath observing(classifiers, 9, DataPath::LIVE, fake_clock);
        for (const Bytes& frame : frames) {
            const CapturedFrame captured{frame.data(), static_cast<uint16_t>(frame.size())};
            observing.observe(&captured, 1);
        }
        observing.kill_all_flows();
        EXPECT_EQ(observing.counts_by_protocol()[protocol].settled.packets, frames.size());
    }
}

TEST_F(DataPathTest, TellsVlansApartInCapturesOnlyAndDirectionsNowhere) {
    DataPath capture(classifiers, 100, DataPath::CAPTURE, fake_clock);
    for (DataPath* either : {&path, &capture}) {
        for (int vlan : {-1, 0, 7, 8, 0xe007}) {  // a priority isn't part of the number
            const test::Path there{"10.0.0.1", "10.0.0.1", 4000, 53, vlan};
            for (const test::Path& path : {there, there.reversed()})
                push_to(*either, {test::udp_frame(path, Bytes(60, 0x31))});
        }
    }
    EXPECT_EQ(path.flow_count(), 1u);
    EXPECT_EQ(capture.flow_count(), 3u);
}

TEST_F(DataPathTest, ForgetsTheLongestIdleOfAFullTableButNothingOfThisSecond) {
    for (const DataPath::kind_e kind : {DataPath::LIVE, DataPath::CAPTURE}) {
        DataPath small(classifiers, 3, kind, fake_clock);
        const auto arrives = [&small](uint16_t port, uint64_t later_ms) {
            g_now_ms += later_ms;
            return push_to(small, {datagram(port)}).pkts[0].error == api::PKT_OK;
        };
        for (uint16_t port : {1, 2, 3, 1})
            EXPECT_TRUE(arrives(port, 500));
        EXPECT_TRUE(arrives(4, 500)) << "for 2, idle for a second and a half";
        EXPECT_EQ(small.evicted(), 1u);
        EXPECT_THAT(small.dump(9),
                    AllOf(HasSubstr(":1 "), HasSubstr(":3 "), HasSubstr(":4 "), Not(HasSubstr(":2 "))));
        EXPECT_TRUE(arrives(3, 0) && arrives(1, 0));
        EXPECT_FALSE(arrives(5, 999));
        EXPECT_TRUE(arrives(5, 1));
        EXPECT_EQ(small.errors(api::PKT_MAX_FLOWS_REACHED), 1u);
        EXPECT_EQ(small.unclassified().packets, 8u) << "forgotten ones count";
        EXPECT_TRUE(arrives(6, 61000));
        EXPECT_EQ(small.aged() > 0, kind == DataPath::LIVE) << "time passes otherwise in a capture";
    }
}

TEST_F(DataPathTest, ForgetsAFlowWhenItsOwnTimeIsOver) {
    const std::vector<Bytes>& http = test::sample_flow("http").frames;
    const std::tuple<const char*, std::vector<Bytes>, uint16_t> cases[] = {
        {"open TCP", {http[0], http[1], http[2], http[3]}, 300},
        {"closed TCP", http, 10},
        {"UDP", test::sample_flow("dns").frames, 60},
        {"ICMP", test::sample_flow("icmp").frames, 30},
    };
    for (const auto& [what, frames, aging_sec] : cases) {
        EXPECT_EQ(push(frames, true).pkts[0].aging_sec, aging_sec) << what;
        g_now_ms += aging_sec * 1000u - 1;
        EXPECT_GT(path.tick(), 0);
        EXPECT_EQ(path.flow_count(), 1u) << what;
        g_now_ms += 1;
        path.tick();
        EXPECT_EQ(path.flow_count(), 0u) << what;
    }
}

#ifndef __SANITIZE_ADDRESS__  // whose allocator keeps what was freed
TEST_F(DataPathTest, ReturnsMemoryWhenMostFlowsHaveBeenGoneForAMinute) {
    DataPath large(classifiers, 16384, DataPath::LIVE, fake_clock);
    const auto come_and_go = [&large] {
        for (uint16_t port = 1; port < 16384; port++)
            push_to(large, {datagram(port)});
        g_now_ms += 60000;
        large.tick();
        EXPECT_EQ(large.flow_count(), 0u);
    };
    push_to(large, {datagram(1)});  // takes a classifier, and the memory for it
    malloc_trim(0);                 // what other tests have freed
    const uint64_t before = resident_memory();
    come_and_go();
    g_now_ms += 59000;
    large.tick();
    EXPECT_GT(resident_memory(), before + (6 << 20)) << "they might come back";
    come_and_go();
    g_now_ms += 60000;
    large.tick();
    EXPECT_LT(resident_memory(), before + (3 << 20));
}
#endif

TEST_F(DataPathTest, KnowsAPeerAgainUntilTheLinksAreRemoved) {
    const test::Path later{"8.0.0.5", "9.0.0.7", 6881, 9998};
    const std::vector<Bytes> unknown(25, test::udp_frame(later, Bytes(60, 0x31)));
    EXPECT_EQ(push(test::torrent_frames()).pkts[0].protocol, "BitTorrent");
    EXPECT_EQ(push(unknown).pkts[0].protocol, "BitTorrent");
    path.remove_all_links();
    path.kill_all_flows();
    EXPECT_EQ(push(unknown).pkts[0].protocol, "");
}

TEST_F(DataPathTest, TellsMoreWhenAskedForMore) {
    const std::tuple<const char*, std::vector<std::string>, const char*> cases[] = {
        {"dns", {"eth", "ipv4", "udp", "dns"}, "dns_name=www.example.net"},
        {"http", {"eth", "ipv4", "tcp", "http"}, "host=www.example.net"},
        {"tls-vlan", {"eth", "vlan", "ipv4", "tcp", "tls"}, "sni=secure.example.net"},
        {"quic", {"eth", "ipv4", "udp", "quic"}, "sni=quic.example.net"},
        {"ssh", {"eth", "ipv4", "tcp", "ssh"}, "ssh_client=SSH-2.0-OpenSSH_9.2p1 Debian-2"},
        {"dhcp", {"eth", "ipv4", "udp", "dhcp"}, "host=thermostat"},
        {"icmpv6", {"eth", "ipv6", "icmpv6"}, nullptr},
    };
    for (const auto& [sample, layers, attribute] : cases) {
        path.kill_all_flows();
        for (const api::pkt_& pkt : push(test::sample_flow(sample).frames, true).pkts) {
            EXPECT_EQ(pkt.tph, layers) << sample;
            EXPECT_EQ(pkt.visibility, 100) << sample;
            EXPECT_EQ(pkt.cat.size(), 1u) << sample;
            if (attribute) {
                EXPECT_THAT(pkt.attr, Contains(attribute)) << sample;
            }
        }
        api::pkt_ plain = push(test::sample_flow(sample).frames).pkts[0];
        EXPECT_TRUE(plain.tph.empty() && plain.cat.empty() && plain.attr.empty()) << sample;
    }
}

TEST_F(DataPathTest, GuessesByPortOnlyAfterGivingUpAndSaysSo) {
    test::Path ssh_port{"10.0.0.1", "10.0.0.2", 40000, 22};
    std::vector<Bytes> frames(80, test::tcp_frame(ssh_port, {}, Bytes(40, 0xee)));
    for (const api::pkt_& pkt : push(frames, true).pkts)
        ASSERT_EQ(pkt.cls, 0u);
    api::pkt_ guess = push({frames[0]}, true).pkts[0];
    EXPECT_EQ(guess.protocol, "SSH");
    EXPECT_EQ(guess.visibility, 25);
    EXPECT_THAT(guess.attr, ElementsAre("guessed=yes"));
    EXPECT_THAT(path.dump(1), HasSubstr(" tcp 10.0.0.1:40000 10.0.0.2:22 SSH cls 92 packets 81 "));
}

}  // namespace
}  // namespace corvo::engine
