#include <gtest/gtest.h>
#include <sys/stat.h>

#include <random>

#include "support/temp_dir.h"
#include "tools/captures/capture_files.h"
#include "tools/captures/sample_flows.h"
#include "utils/pcap/pcap_libpcap.h"
#include "utils/pcap/pcap_reader.h"

using namespace corvo;
using test::Bytes;

namespace {

/** Words of a file in this machine's byte order, then the bytes of frames. */
class PcapText {
 public:
    PcapText& words(std::initializer_list<uint32_t> words) {
        for (uint32_t word : words)
            m_text.append(reinterpret_cast<const char*>(&word), sizeof(word));
        return *this;
    }
    PcapText& header() { return words({0xA1B2C3D4, 0x00040002, 0, 0, 2000, 1}); }
    PcapText& record(uint32_t caplen, uint32_t len, size_t bytes, char fill) {
        words({1, 2, caplen, len});
        m_text.append(bytes, fill);
        return *this;
    }
    operator const std::string&() const { return m_text; }

 private:
    std::string m_text;
};

struct Frame {
    uint64_t time_usec;
    Bytes bytes;
    bool operator==(const Frame&) const = default;
};

std::vector<Frame> read_all(CCapReaderBase& reader, CCapPkt& pkt) {
    std::vector<Frame> frames;
    while (reader.ReadPacket(&pkt))
        frames.push_back({pkt.time_sec * 1000000ULL + pkt.time_nsec / 1000,
                          Bytes(pkt.GetPktBuffer(), pkt.GetPktBuffer() + pkt.GetPktLen())});
    return frames;
}

std::vector<Frame> read_all(const std::string& path) {
    auto reader = CCapReaderFactory::CreateReader(path.c_str(), 0);
    CCapPkt pkt;
    return reader ? read_all(*reader, pkt) : std::vector<Frame>{};
}

class Pcap : public testing::Test {
 protected:
    /** The sizes of the frames in a file of this content. */
    std::vector<size_t> sizes(const std::string& content) {
        std::vector<size_t> result;
        for (const Frame& frame : read_all(m_dir.write("x.pcap", content)))
            result.push_back(frame.bytes.size());
        return result;
    }
    /** What is printed while a reader for the path can't be made. */
    static std::string refusal(const std::string& path) {
        testing::internal::CaptureStdout();
        EXPECT_EQ(CCapReaderFactory::CreateReader(path.c_str(), 0), nullptr);
        return testing::internal::GetCapturedStdout();
    }

    test::TempDir m_dir;
    CCapPkt m_pkt;
};

using Sizes = std::vector<size_t>;

}  // namespace

TEST_F(Pcap, WhatIsWrittenInEitherByteOrderIsReadBack) {
    std::vector<Bytes> frames = test::sample_frames();
    std::vector<Frame> expected;
    for (size_t i = 0; i < frames.size(); i++)
        expected.push_back({test::frame_time_usec(i), frames[i]});
    test::write_pcap(m_dir.file("native"), frames);
    test::write_swapped_pcap(m_dir.file("swapped"), frames);
    for (const char* name : {"native", "swapped"})
        EXPECT_EQ(read_all(m_dir.file(name)), expected) << name;
}

TEST_F(Pcap, RecordsEndWhereTheirHeadersSay) {
    EXPECT_EQ(sizes(PcapText().header()), Sizes({}));
    EXPECT_EQ(sizes(PcapText().header().record(0, 0, 0, 0).record(9, 9, 9, 'a')), Sizes({0, 9}));
    // More in the file than on the wire: the rest is skipped. Less: a snapped frame.
    EXPECT_EQ(sizes(PcapText().header().record(30, 20, 30, 'a').record(5, 5, 5, 'b')), Sizes({20, 5}));
    EXPECT_EQ(sizes(PcapText().header().record(20, 1500, 20, 'a').record(5, 5, 5, 'b')), Sizes({20, 5}));
    EXPECT_EQ(sizes(PcapText().header().record(65535, 65535, 65535, 'a')), Sizes({65535}));
    EXPECT_EQ(sizes(PcapText().header().record(65536, 65536, 65536, 'a').record(5, 5, 5, 'b')), Sizes({}));
    EXPECT_EQ(sizes(PcapText().header().record(0xFFFFFFFF, 4, 4, 'a').record(5, 5, 5, 'b')), Sizes({4}));
}

TEST_F(Pcap, AFrameThatIsCutOffLeavesAnEmptyPacket) {
    LibPCapReader reader;
    ASSERT_TRUE(reader.Create(
        m_dir.write("cut", PcapText().header().record(40, 40, 40, 'a').record(40, 40, 39, 'b')).c_str(), 0));
    EXPECT_EQ(read_all(reader, m_pkt).size(), 1U);
    EXPECT_EQ(m_pkt.GetPktLen(), 0);
    EXPECT_FALSE(reader.ReadPacket(nullptr));
}

TEST_F(Pcap, FramesAreCountedWithoutTheirBytesAndReadInALoop) {
    LibPCapReader reader, looping, empty;
    const std::string two = PcapText().header().record(30, 20, 30, 'a').record(5, 50, 5, 'b');
    ASSERT_TRUE(reader.Create(m_dir.write("cut", two + "header, cut").c_str(), 0));
    ASSERT_TRUE(reader.ReadPacket(&m_pkt));
    EXPECT_EQ(reader.readNumOfPackets(&m_pkt), 1U);
    EXPECT_EQ(reader.readNumOfPackets(&m_pkt), 2U) << "counting starts over";
    EXPECT_EQ(read_all(reader, m_pkt).size(), 2U);
    ASSERT_TRUE(looping.Create(m_dir.write("two", two).c_str(), 5));
    EXPECT_EQ(read_all(looping, m_pkt).size(), 6U) << "the pass in which the loop ends is finished";
    ASSERT_TRUE(empty.Create(m_dir.write("empty", PcapText().header()).c_str(), 5));
    EXPECT_FALSE(empty.ReadPacket(&m_pkt));
}

TEST_F(Pcap, AFileThatCannotBeReadIsRefusedWithAReason) {
    std::string absent = m_dir.file("absent");
    EXPECT_EQ(refusal(absent), "\nERROR: Cap file not found " + absent + "\n\n");
    std::string below_file = m_dir.write("file", "x") + "/y";
    EXPECT_EQ(refusal(below_file), "\nERROR: Failed to open cap file '" + below_file + "' with errno 20\n\n");

    std::mt19937 random(1);
    std::string noise(100000, 0);
    for (char& c : noise)
        c = static_cast<char>(random());
    std::string fifo = m_dir.file("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const std::string nsec_magic = PcapText().words({0xA1B23C4D, 0x00040002, 0, 0, 2000, 1});
    for (const std::string& path : {m_dir.write("text %s%n", "this is no capture\n"),
                                    m_dir.write("noise", noise), m_dir.write("nsec", nsec_magic),
                                    m_dir.write("head", nsec_magic.substr(0, 23)), m_dir.path(), fifo}) {
        std::string printed = refusal(path);
        EXPECT_NE(printed.find("\nERROR: file " + path +
                               " format not supported\nERROR: formats supported are "
                               "LIBPCAP and ERF. other formats are deprecated\n"),
                  std::string::npos)
            << printed;
    }
}

TEST_F(Pcap, AFrameInMemoryIsGivenOnce) {
    Bytes frame = test::sample_frames().front();
    auto reader = CCapReaderFactory::CreateReader(frame.data(), static_cast<uint16_t>(frame.size()));
    EXPECT_EQ(read_all(*reader, m_pkt), (std::vector<Frame>{{0, frame}}));
}

TEST_F(Pcap, AWholeFileIsHandedOutOncePerProcess) {
    std::string path = m_dir.file("dns");
    test::write_pcap(path, test::sample_flow("dns").frames);
    auto first = CCapReaderFactory::CreateWholeCapReader(path.c_str(), 3);
    auto second = CCapReaderFactory::CreateWholeCapReader(path.c_str(), 0);
    ASSERT_TRUE(first && second);
    EXPECT_TRUE(first->ReadPacket(&m_pkt));
    EXPECT_EQ(CWholeCapReader::getLpPackets(*second).size(), 1U);
    EXPECT_FALSE(first->ReadPacket(&m_pkt));
}

TEST_F(Pcap, TheNanosecondVariantKeepsNanoseconds) {
    {
        CPcapFileWriter writer;
        ASSERT_TRUE(writer.Create(m_dir.file("nsec").c_str()));
        m_pkt.time_sec = 5;
        m_pkt.time_nsec = 123456789;
        EXPECT_TRUE(writer.write_packet(&m_pkt));
    }
    EXPECT_EQ(test::read_file(m_dir.file("nsec")),
              static_cast<std::string>(
                  PcapText().words({0xA1B23C4D, 0x00040002, 0, 0, 2000, 1}).words({5, 123456789, 0, 0})));
}
