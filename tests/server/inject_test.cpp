#include <gmock/gmock.h>
#include <sys/stat.h>

#include <map>

#include "server/engine_fixture.h"
#include "utils/pcap/pcap_writer.h"

namespace corvo::server {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint16_t ETHERTYPE_IPV4 = 0x0800;
constexpr uint16_t ETHERTYPE_ARP = 0x0806;

/** A TCP SYN from 10.0.0.1:1000 to 10.0.0.2:80 in a frame of `size` bytes. */
std::string make_frame(size_t size, uint16_t ethertype = ETHERTYPE_IPV4) {
    std::string frame(size, '\0');
    const auto put16 = [&](size_t at, size_t value) {
        frame[at] = static_cast<char>(value >> 8);
        frame[at + 1] = static_cast<char>(value);
    };
    put16(12, ethertype);
    frame[14] = 0x45;
    put16(16, size - 14);
    frame[23] = 6;
    frame.replace(26, 8, std::string("\x0a\x00\x00\x01\x0a\x00\x00\x02", 8));
    put16(34, 1000);
    put16(36, 80);
    put16(46, 0x5002);
    return frame;
}

class InjectTest : public test::EngineTest {
 public:
    InjectTest() { bring_up(Engine::STATE_ACTIVE); }

    std::string capture(const std::vector<std::string>& frames) {
        const std::string path = m_dir.file("in.pcap");
        const auto writer = CCapWriterFactory::CreateWriter(CAPTURE_LIBPCAP, path.c_str());
        for (const std::string& frame : frames) {
            CCapPkt pkt(reinterpret_cast<const unsigned char*>(frame.data()), frame.size());
            writer->write_packet(&pkt);
        }
        return path;
    }
    std::vector<Engine::PktInfo> push(const std::string& path, bool extended = false) {
        std::vector<Engine::PktInfo> results;
        m_engine.push_pcap("dp0", path, false, 7, extended, results);
        return results;
    }
    std::string unreadable(const std::string& path) {
        return "Unable to read '" + path + "' - not found or wrong format";
    }
};

TEST_F(InjectTest, ABatchGoesOutWhenItHoldsMoreThan9999Bytes) {
    const struct {
        std::vector<size_t> sizes;
        std::vector<std::string> batches;
    } cases[] = {
        {{}, {}},
        {{60}, {"pkts=1 bytes=60"}},
        {{5000, 5000, 5000}, {"pkts=2 bytes=10000", "pkts=1 bytes=5000"}},
        {{5000, 4999, 60}, {"pkts=3 bytes=10059"}},
        {{5000, 5000}, {"pkts=2 bytes=10000"}},
        {{20000, 60, 20000, 60}, {"pkts=1 bytes=20000", "pkts=2 bytes=20060", "pkts=1 bytes=60"}},
    };
    for (const auto& item : cases) {
        std::vector<std::string> frames;
        for (const size_t size : item.sizes)
            frames.push_back(make_frame(size));
        EXPECT_EQ(push(capture(frames)).size(), item.sizes.size());
        std::string expected;
        for (const auto& batch : item.batches) {
            expected += "push_pkts dpaddr=dp0 " + batch + " ns_id=7 extended=0\n";
        }
        EXPECT_EQ(calls(), expected);
    }
}

TEST_F(InjectTest, FramesThatAreNotIpAreSkippedWithoutATrace) {
    EXPECT_THAT(push(capture({make_frame(60, ETHERTYPE_ARP), "short"})), IsEmpty());
    EXPECT_EQ(calls(), "");
    EXPECT_EQ(push(capture({make_frame(60, ETHERTYPE_ARP), make_frame(60)})).size(), 1u);
}

TEST_F(InjectTest, OnlyWhatTheEngineRecognisedIsHandedOver) {
    script("class push_pkts 4 a 4 a 0 none 4 a 9 b");
    std::map<std::string, int> counts;
    m_engine.push_pcap("", capture(std::vector<std::string>(10, make_frame(4000))), false, 0, false,
                       [&](Engine::PktInfo&& info) { ++counts[info.protocol]; });
    EXPECT_THAT(counts, ElementsAre(std::pair("a", 6), std::pair("b", 2)));
}

TEST_F(InjectTest, AnExtendedResultHoldsWhatTheFrameAndTheEngineSay) {
    const auto results = push(capture({make_frame(60)}), true);
    ASSERT_EQ(results.size(), 1u);
    const Engine::PktInfo& info = results[0];
    EXPECT_EQ(info.src, "10.0.0.1:1000");
    EXPECT_EQ(info.dst, "10.0.0.2:80");
    EXPECT_EQ(info.transport, "tcp");
    EXPECT_EQ(info.len, 60);
    EXPECT_EQ(info.protocol, "bench");
    EXPECT_EQ(info.cls, 1u);
    EXPECT_EQ(info.error, api::PKT_NON_FFRAG);
    EXPECT_EQ(info.aging_sec, 30);
    EXPECT_EQ(info.visibility, 2);
    EXPECT_THAT(info.cat, ElementsAre(std::pair(1, 2), std::pair(3, 4)));
    EXPECT_THAT(info.attr, ElementsAre("syn", "scripted"));
    EXPECT_THAT(info.tph, ElementsAre("eth", "bench"));
}

TEST_F(InjectTest, OneRawFrameGetsNoAddressFlagsOrLength) {
    Engine::PktInfo info;
    m_engine.push_raw_extended("dp1", make_frame(60), 3, false, true, info);
    EXPECT_EQ(calls(), "push_pkts dpaddr=dp1 pkts=1 bytes=60 ns_id=3 extended=1\n");
    EXPECT_EQ(info.protocol, "bench");
    EXPECT_EQ(info.src + info.dst + info.transport, "");
    EXPECT_EQ(info.len, 0);
    EXPECT_THAT(info.attr, ElementsAre("scripted"));
    EXPECT_EQ(failure([&] { m_engine.push_raw_extended("", "\x01\x02", 0, false, false, info); }),
              "Failed to parse packet");
}

TEST_F(InjectTest, TheFlowsAreForgottenBeforeTheFileIsLookedAt) {
    std::vector<Engine::PktInfo> results;
    const std::string path = m_dir.file("100%d.pcap");
    EXPECT_EQ(failure([&] { m_engine.push_pcap("dp0", path, true, 0, false, results); }), unreadable(path));
    EXPECT_EQ(calls(),
              "coffee dpaddr=dp0 func=dp.veld.sui_lut_remove_all_links args=\n"
              "coffee dpaddr=dp0 func=dp.ft.sui_ft_kill_all_flows args=\n");

    script("fail coffee no such function");
    EXPECT_EQ(failure([&] { m_engine.push_pcap("", path, true, 0, false, results); }), "no such function");
    EXPECT_EQ(calls(), "coffee dpaddr= func=dp.veld.sui_lut_remove_all_links args=\n");
}

TEST_F(InjectTest, AFileWithoutFramesIsEmptyAndOneThatIsNoFileIsRefused) {
    EXPECT_THAT(push(m_dir.write("zero", "")), IsEmpty());
    for (const std::string& path : {m_dir.write("text", "this is no capture of anything"), m_dir.path(),
                                    m_dir.file("zero") + '\0' + "x"}) {
        EXPECT_EQ(failure([&] { push(path); }), unreadable(path).c_str());
    }
    const std::string pipe = m_dir.file("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_EQ(failure([&] { push(pipe); }), unreadable(pipe));
    EXPECT_EQ(calls(), "");
}

TEST_F(InjectTest, AnEngineThatFailsEndsTheFile) {
    script("fail push_pkts out of flows");
    const std::string path = capture(std::vector<std::string>(4, make_frame(9999)));
    EXPECT_EQ(failure([&] { push(path); }), "out of flows");
    EXPECT_EQ(calls(), "push_pkts dpaddr=dp0 pkts=2 bytes=19998 ns_id=7 extended=0\n");
}

}  // namespace
}  // namespace corvo::server
