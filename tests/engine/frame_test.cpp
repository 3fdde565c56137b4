#include "frame.h"

#include <gtest/gtest.h>

#include "tools/captures/frame_builder.h"

namespace corvo::engine {
namespace {

using test::Bytes;
using test::Path;

const Path V4{"10.0.0.1", "10.0.0.2", 1000, 2000};
const Path V6{"fd00::1", "fd00::2", 1000, 2000};

Bytes udp(Path path, int vlan = -1, Bytes extensions = {}) {
    path.vlan = vlan;
    path.ipv6_extensions = extensions;
    return test::udp_frame(path, test::from_text("payload"));
}

Bytes patched(Bytes frame, size_t at, const Bytes& bytes) {
    std::copy(bytes.begin(), bytes.end(), frame.begin() + static_cast<long>(at));
    return frame;
}

Bytes cut(Bytes frame, size_t length) {
    frame.resize(length);
    return frame;
}

Bytes tagged(Bytes frame, const Bytes& tag) {
    frame.insert(frame.begin() + 12, tag.begin(), tag.end());
    return frame;
}

/** The packet of a frame in another one. */
Bytes in_ip(const Bytes& frame, const Path& outer = V4) {
    return test::ip_frame(outer, frame[14] >> 4 == 4 ? 4 : 41, {frame.begin() + 14, frame.end()});
}

TEST(Frame, TellsWhyAFrameCannotBeUsed) {
    Bytes five_tags = udp(V4, 1);
    for (int i = 0; i < 4; ++i)
        five_tags = tagged(five_tags, {0x88, 0xa8, 0, 1});
    const std::tuple<const char*, Bytes, api::pkt_error_e> cases[] = {
        {"nothing", {}, api::PKT_TRIMMED_L3},
        {"ARP", test::ether_frame(test::ETHER_ARP, Bytes(28)), api::PKT_NON_IP},
        {"the other version's header", patched(udp(V4), 14, {0x65}), api::PKT_NON_IP},
        {"five tags", five_tags, api::PKT_NON_IP},
        {"half a tag", cut(udp(V4, 1), 16), api::PKT_TRIMMED_L3},
        {"no IP header", cut(udp(V4), 14), api::PKT_TRIMMED_L3},
        {"half an IPv4 header", cut(udp(V4), 33), api::PKT_TRIMMED_L3},
        {"an IPv4 header of 16 bytes", patched(udp(V4), 14, {0x44}), api::PKT_TRIMMED_L3},
        {"IPv4 options behind the end", patched(cut(udp(V4), 50), 14, {0x4f}), api::PKT_TRIMMED_L3},
        {"an IPv4 packet shorter than its header", patched(udp(V4), 16, {0, 19}), api::PKT_TRIMMED_L3},
        {"an IPv4 packet that ends in its UDP header", patched(udp(V4), 16, {0, 27}), api::PKT_OK},
        {"half a UDP header", cut(udp(V4), 41), api::PKT_OK},
        {"half a TCP header", cut(test::tcp_frame(V4, {}, {}), 53), api::PKT_OK},
        {"a later IPv4 fragment", patched(udp(V4), 20, {0x00, 0x01}), api::PKT_NON_FFRAG},
        {"the first IPv4 fragment", patched(udp(V4), 20, {0x20, 0x00}), api::PKT_OK},
        {"half an IPv6 header", cut(udp(V6), 53), api::PKT_TRIMMED_L3},
        {"an IPv6 extension behind the end", patched(udp(V6, -1, {0}), 55, {200}), api::PKT_TRIMMED_L3},
        {"an IPv6 fragment", patched(udp(V6, -1, {44}), 56, {0x00, 0x08}), api::PKT_IPV6_FRAG},
        {"the first IPv6 fragment", patched(udp(V6, -1, {44}), 56, {0x00, 0x01}), api::PKT_OK},
        {"an inner packet that isn't one", test::ip_frame(V4, 4, Bytes(40, 0x65)), api::PKT_NON_IP},
        {"half an inner header", test::ip_frame(V4, 4, Bytes(10, 0x45)), api::PKT_TRIMMED_L3},
        {"five packets in one", in_ip(in_ip(in_ip(in_ip(in_ip(udp(V4)))))), api::PKT_NON_IP},
        {"an IPv6 fragment that is the whole", patched(udp(V6, -1, {44}), 56, {0, 0}), api::PKT_OK},
    };
    for (const auto& [what, frame, error] : cases)
        EXPECT_EQ(decode_frame(frame.data(), frame.size()).error, error) << what;
}

TEST(Frame, FindsTheTransportHeaderBehindTagsExtensionsAndOuterPackets) {
    const Bytes frames[] = {udp(V4),
                            udp(V4, 7),
                            tagged(udp(V4, 7), {0x88, 0xa8, 0, 9}),
                            udp(V6),
                            udp(V6, 7, {0, 43, 60}),
                            in_ip(udp(V4)),
                            in_ip(udp(V6)),
                            in_ip(in_ip(udp(V4), V6))};
    for (const Bytes& bytes : frames) {
        Frame frame = decode_frame(bytes.data(), bytes.size());
        EXPECT_EQ(frame.error, api::PKT_OK);
        EXPECT_EQ(frame.protocol, PROTO_UDP);
        EXPECT_EQ(frame.src_port, 1000);
        EXPECT_EQ(frame.dst_port, 2000);
    }
}

TEST(Frame, LeavesEthernetPaddingOutOfThePacket) {
    Bytes bytes = udp(V4);
    size_t packet = bytes.size() - 14;
    bytes.resize(200);
    EXPECT_EQ(decode_frame(bytes.data(), bytes.size()).l3_len, packet);
}

}  // namespace
}  // namespace corvo::engine
