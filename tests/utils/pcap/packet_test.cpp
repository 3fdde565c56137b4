#include <gtest/gtest.h>

#include <cstring>

#include "tools/captures/frame_builder.h"
#include "utils/pcap/pcap_packet.h"

using corvo::CCapPkt;
using corvo::CFiaCounters;
using namespace test;

namespace {

Path v4(int vlan = -1, uint8_t option_words = 0) {
    return {"10.1.0.2", "192.168.255.1", 4000, 80, vlan, {}, option_words};
}
Path v6(int vlan = -1, const Bytes& extensions = {}) {
    return {"fd00:1::2", "fe80::ab", 4000, 53, vlan, extensions};
}

Bytes tcp(const Path& path, uint8_t flags = TCP_ACK) {
    return tcp_frame(path, {1, 2, flags}, Bytes(5, 'x'));
}
Bytes udp(const Path& path) {
    return udp_frame(path, Bytes(12, 0xFF));
}

Bytes changed(Bytes frame, size_t at, unsigned char value) {
    frame.at(at) = value;
    return frame;
}

Bytes cut(Bytes frame, size_t size) {
    frame.resize(size);
    return frame;
}

CCapPkt packet(const Bytes& frame) {
    return {frame.data(), static_cast<unsigned int>(frame.size())};
}

using Ends = std::pair<std::string, std::string>;  ///< source and destination
const Ends V4 = {"10.1.0.2:4000", "192.168.255.1:80"};
const Ends V6 = {"fd00:1:0:0:0:0:0:2,4000", "fe80:0:0:0:0:0:0:ab,53"};
const Ends V6_NO_PORTS = {"fd00:1:0:0:0:0:0:2,0", "fe80:0:0:0:0:0:0:ab,0"};

const std::tuple<const char*, Bytes, int, int, int, Ends> VALID_FRAMES[] = {
    // frame, places of its headers, protocol, ends
    {"TCP", tcp(v4()), 14, 34, 6, V4},
    {"VLAN", tcp(v4(7)), 18, 38, 6, V4},
    {"options", udp(v4(-1, 3)), 14, 46, 17, V4},
    {"no ports", icmp_frame(v4(), 8, Bytes(8)), 14, 34, 1, {"10.1.0.2:0", "192.168.255.1:0"}},
    {"padding", cut(tcp(v4()), 90), 14, 34, 6, V4},
    {"wrong checksum", changed(udp(v4()), 24, 0x55), 14, 34, 17, V4},
    {"cut off", ip_frame(v4(), IP_TCP, {1, 0, 2}), 14, 34, 6, {"10.1.0.2:256", "192.168.255.1:0"}},
    {"header of 4 bytes", changed(changed(cut(udp(v4()), 20), 14, 0x41), 17, 4), 14, 18, 0, {"", ""}},
    {"IPv6", udp(v6()), 14, 54, 17, V6},
    {"IPv6 VLAN", udp(v6(7)), 18, 58, 17, V6},
    {"hop-by-hop and routing", tcp(v6(-1, {0, 43})), 14, 70, 6, V6},
    {"fragment header", udp(v6(-1, {44})), 14, 54, 44, V6_NO_PORTS},
    {"fragment behind hop-by-hop", udp(v6(-1, {0, 44})), 14, 54, 0, V6_NO_PORTS},
    {"no payload", ip_frame(v6(), IP_UDP, {}), 14, 54, 59, V6_NO_PORTS},
    {"extensions use payload up", ip_frame(v6(-1, {0, 60}), IP_UDP, {}), 14, 54, 59, V6_NO_PORTS},
};

using Counter = uint32_t CFiaCounters::*;
constexpr Counter SHORT = &CFiaCounters::short_pkt, NON_IP = &CFiaCounters::non_ip;

const std::tuple<const char*, Bytes, int, Counter, Counter> BAD_FRAMES[] = {
    // frame, its version, what counts it in the check for IPv4 and in the one for IPv6
    {"nothing", {}, 0, SHORT, SHORT},
    {"19 bytes", cut(udp(v4()), 19), 0, SHORT, SHORT},
    {"20 bytes", cut(udp(v4()), 20), 4, SHORT, SHORT},
    {"20 bytes and VLAN", cut(udp(v4(7)), 20), 4, SHORT, SHORT},
    {"ARP", ether_frame(ETHER_ARP, Bytes(46)), 0, NON_IP, NON_IP},
    {"ARP and VLAN", ether_frame(ETHER_ARP, Bytes(46), 7), 0, NON_IP, NON_IP},
    {"two VLAN tags", ether_frame(0x8100, Bytes(46), 7), 0, NON_IP, NON_IP},
    {"version 5", changed(udp(v4()), 14, 0x55), 5, &CFiaCounters::bad_version, SHORT},
    {"total length below header", changed(udp(v4()), 17, 19), 4, &CFiaCounters::bad_length, SHORT},
    {"total length above frame", changed(udp(v4()), 17, 41), 4, SHORT, SHORT},
    {"IPv6, last byte missing", cut(udp(v6()), udp(v6()).size() - 1), 6, NON_IP, SHORT},
    {"IPv4 that says IPv6", changed(udp(v6()), 14, 0x45), 4, NON_IP, nullptr},
};

}  // namespace

TEST(CapPkt, HeadersAreFoundAndDescribed) {
    for (const auto& [name, frame, l3, l4, protocol, ends] : VALID_FRAMES) {
        SCOPED_TRACE(name);
        CCapPkt pkt = packet(frame);
        ASSERT_TRUE(pkt.parse());
        const unsigned char* start = pkt.GetPktBuffer();
        EXPECT_EQ(std::tuple(pkt.l3 - start, pkt.l4 - start, pkt.GetProtocol()),
                  std::tuple(l3, l4, protocol));
        EXPECT_EQ(Ends(pkt.GetSrcAddr(), pkt.GetDstAddr()), ends);
    }
}

TEST(CapPkt, BadFramesAreRefusedAndCountedByReason) {
    for (const auto& [name, frame, version, in_ipv4_check, in_ipv6_check] : BAD_FRAMES) {
        SCOPED_TRACE(name);
        CCapPkt pkt = packet(frame);
        EXPECT_EQ(pkt.GetIpVer(), version);
        EXPECT_FALSE(pkt.parse());
        // The position of an invalid header is known all the same.
        const Counter failed = version == 4 ? in_ipv4_check : version == 6 ? in_ipv6_check : NON_IP;
        EXPECT_EQ(pkt.l3 == nullptr, failed == NON_IP);
        EXPECT_EQ(pkt.l4, nullptr);
        CFiaCounters ipv4, ipv6;
        EXPECT_FALSE(pkt.IsValidIpv4Packet(&ipv4));
        EXPECT_EQ(ipv4.*in_ipv4_check, 1U);
        EXPECT_EQ(pkt.IsValidIpv6Packet(&ipv6), !in_ipv6_check);
        if (in_ipv6_check) {
            EXPECT_EQ(ipv6.*in_ipv6_check, 1U);
        }
    }
}

TEST(CapPkt, OddButValidFramesAreCounted) {
    Path broadcast = v4(7);
    broadcast.to = "255.255.255.255";
    CFiaCounters counters;
    EXPECT_TRUE(packet(udp(broadcast)).IsValidIpv4Packet(&counters));
    EXPECT_TRUE(packet(changed(udp(v4()), 22, 1)).IsValidIpv4Packet(&counters));
    // Too short to hold the addresses, and its checksum covers nothing.
    EXPECT_TRUE(packet(changed(changed(cut(udp(v4()), 20), 14, 0x40), 17, 0)).IsValidIpv4Packet(&counters));
    EXPECT_EQ(counters.vlan, 1U);
    EXPECT_EQ(counters.broadcast, 1U);
    EXPECT_EQ(counters.bad_checksum, 2U);
    EXPECT_EQ(counters.short_pkt + counters.non_ip + counters.bad_version + counters.bad_length, 0U);
}

TEST(CapPkt, FlagsAreThoseOfATcpHeaderWithinTheFrame) {
    const std::pair<Bytes, int> cases[] = {
        {tcp(v4(), TCP_SYN), TCP_SYN},
        {tcp(v6(7), TCP_FIN | TCP_ACK), TCP_FIN},
        {tcp(v4(), TCP_RST), TCP_RST},
        {udp(v4()), 0},
        {ip_frame(v4(), IP_TCP, Bytes(13, 0xFF)), 0},
        {ip_frame(v4(), IP_TCP, Bytes(14, 0xFF)), TCP_SYN | TCP_FIN | TCP_RST},
    };
    for (const auto& [frame, flags] : cases) {
        CCapPkt pkt = packet(frame);
        ASSERT_TRUE(pkt.parse());
        EXPECT_EQ(TCP_SYN * pkt.IsSYN() + TCP_FIN * pkt.IsFIN() + TCP_RST * pkt.IsRST(), flags);
    }
}

TEST(CapPkt, ABufferThatChangesForgetsItsHeaders) {
    const Bytes frame = tcp(v4()), arp = ether_frame(ETHER_ARP, Bytes(28));
    CCapPkt pkt = packet(frame);
    ASSERT_TRUE(pkt.parse());
    unsigned char* buffer = pkt.GetPktBuffer();
    pkt.updatePacketData(arp.data(), static_cast<unsigned int>(arp.size()));
    EXPECT_EQ(pkt.GetPktBuffer(), buffer) << "it was large enough";
    EXPECT_TRUE(!pkt.l3 && !pkt.l4);
    EXPECT_EQ(pkt.GetPktLen(), frame.size());
    pkt.SetPktLen(2000);
    EXPECT_EQ(pkt.GetPktBuffer()[0], arp[0]);
    EXPECT_EQ(pkt.GetPktBuffer()[1999], 0);

    CCapPkt given = packet(frame);
    ASSERT_TRUE(given.parse());
    EXPECT_EQ(memcmp(given.release_data().get(), frame.data(), frame.size()), 0);
    EXPECT_EQ(given.GetPktLen(), 0);
    EXPECT_FALSE(given.l3 || given.parse());
}

TEST(CapPkt, TheChecksumIsThatOfTheInternet) {
    const Bytes bytes = {0x00, 0x01, 0xF2, 0x03, 0xF4, 0xF5, 0xF6, 0xF7, 0x80};
    EXPECT_EQ(CCapPkt::InetChecksum(bytes.data(), 8), 0x220D);
    EXPECT_EQ(CCapPkt::InetChecksum(bytes.data(), 9), 0xA20C);
    EXPECT_EQ(CCapPkt::InetChecksum(bytes.data(), 9, 1), 0x2DDF1U);
    EXPECT_EQ(CCapPkt::InetChecksum(bytes.data(), 1, 77), 77U);
}

TEST(CapPkt, AnIpv4FrameBecomesAnIpv6Frame) {
    // Each word of an address is the IPv4 address in the machine's byte order.
    const uint32_t one = 1;
    bool is_little = *reinterpret_cast<const unsigned char*>(&one) == 1;
    Path from = {"10.1.0.2", "10.1.0.3", 4000, 80};
    Path to = from;
    to.from = is_little ? "200:10a:200:10a:200:10a:200:10a" : "a01:2:a01:2:a01:2:a01:2";
    to.to = is_little ? "300:10a:300:10a:300:10a:300:10a" : "a01:3:a01:3:a01:3:a01:3";
    for (int vlan : {-1, 7}) {
        from.vlan = to.vlan = vlan;
        CCapPkt pkt = packet(cut(tcp(from), 90));  // the padding goes
        Bytes expected = tcp(to);
        EXPECT_EQ(pkt.convertPktToIpv6InPlace(), expected.size());
        EXPECT_EQ(Bytes(pkt.GetPktBuffer(), pkt.GetPktBuffer() + pkt.GetPktLen()), expected);
        EXPECT_EQ(pkt.convertPktToIpv6InPlace(), vlan < 0 ? expected.size() : 0);
    }
}

TEST(CapPkt, AFrameThatWouldNotFitIsLeftAsItIs) {
    for (const auto& [size, result] : {std::pair{65535 - 54, 0xFF}, {65535 - 53, 0}}) {
        const Bytes frame = ip_frame(v4(), IP_UDP, Bytes(size));
        CCapPkt pkt = packet(frame);
        EXPECT_EQ(pkt.convertPktToIpv6InPlace(), result);
        EXPECT_EQ(pkt.GetPktLen(), result ? 65535 : frame.size());
        EXPECT_EQ(Bytes(pkt.GetPktBuffer(), pkt.GetPktBuffer() + frame.size()) == frame, result == 0);
    }
}
