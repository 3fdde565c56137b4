// Capture files of both formats, from bytes to frames and back.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <random>

#include "support/temp_dir.h"
#include "tools/captures/capture_files.h"
#include "tools/captures/sample_flows.h"
#include "utils/pcap/pcap_erf.h"
#include "utils/pcap/pcap_libpcap.h"
#include "utils/pcap/pcap_reader.h"

using namespace corvo;
using test::Bytes;

namespace {

/** Words of a pcap file in this machine's byte order, then the bytes of frames. */
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

struct Record {
    uint64_t ts = 0;
    uint32_t rlen = 18;
    uint32_t wlen = 0;
    unsigned char type = 2;
    unsigned char flags = 0;
};

/** An ERF record of `rlen` bytes, or its header if that is less. The frame's bytes count up from 0. */
std::string bytes_of(const Record& record) {
    test::ByteWriter writer;
    for (int i = 0; i < 8; i++)
        writer.u8(static_cast<unsigned char>(record.ts >> 8 * i));
    writer.u8(record.type).u8(record.flags).u16(record.rlen).u16(0).u16(record.wlen);
    for (uint32_t i = 16; i < record.rlen; i++)
        writer.u8(i < 18 ? 0xEE : static_cast<unsigned char>(i - 18));
    const Bytes& bytes = writer;
    return {bytes.begin(), bytes.end()};
}

using Frame = std::pair<uint64_t, Bytes>;  ///< microseconds and bytes
using Sizes = std::vector<size_t>;

class CaptureFile : public testing::Test {
 protected:
    std::vector<Frame> read_all(CCapReaderBase& reader) {
        std::vector<Frame> frames;
        while (reader.ReadPacket(&m_pkt))
            frames.push_back({m_pkt.time_sec * 1000000ULL + m_pkt.time_nsec / 1000,
                              Bytes(m_pkt.GetPktBuffer(), m_pkt.GetPktBuffer() + m_pkt.GetPktLen())});
        return frames;
    }
    std::vector<Frame> read_all(const std::string& path) {
        auto reader = CCapReaderFactory::CreateReader(path.c_str(), 0);
        return reader ? read_all(*reader) : std::vector<Frame>{};
    }
    /** The sizes of the frames in a file of this content; `m_printed` is what was printed meanwhile. */
    Sizes sizes(const std::string& content) {
        Sizes result;
        testing::internal::CaptureStdout();
        for (const Frame& frame : read_all(m_dir.write("x", content)))
            result.push_back(frame.second.size());
        m_printed = testing::internal::GetCapturedStdout();
        return result;
    }
    bool opens(const std::string& content) {
        return sizes(content), m_printed.find("ERROR") == std::string::npos;
    }

    test::TempDir m_dir;
    CCapPkt m_pkt;
    std::string m_printed;
};
using Pcap = CaptureFile;
using Erf = CaptureFile;

}  // namespace

TEST_F(CaptureFile, WhatIsWrittenIsReadBack) {
    const std::vector<Bytes> frames = test::sample_frames();
    std::vector<Frame> expected;
    for (size_t i = 0; i < frames.size(); i++)
        expected.push_back({test::frame_time_usec(i), frames[i]});
    test::write_pcap(m_dir.file("native"), frames);
    test::write_swapped_pcap(m_dir.file("swapped"), frames);
    for (const char* name : {"native", "swapped"})
        EXPECT_EQ(read_all(m_dir.file(name)), expected) << name;
    test::write_erf(m_dir.file("erf"), frames);
    const std::vector<Frame> erf = read_all(m_dir.file("erf"));
    ASSERT_EQ(erf.size(), frames.size());
    for (size_t i = 0; i < frames.size(); i++)
        EXPECT_EQ(erf[i].second, frames[i]);
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
    EXPECT_EQ(sizes(PcapText().header().record(40, 40, 40, 'a').record(40, 40, 39, 'b')), Sizes({40}));
    EXPECT_EQ(m_pkt.GetPktLen(), 0) << "what was cut off leaves an empty packet";
}

TEST_F(Pcap, FramesAreCountedWithoutTheirBytesAndReadInALoop) {
    LibPCapReader reader, looping, empty;
    const std::string two = PcapText().header().record(30, 20, 30, 'a').record(5, 50, 5, 'b');
    ASSERT_TRUE(reader.Create(m_dir.write("cut", two + "header, cut").c_str(), 0));
    ASSERT_TRUE(reader.ReadPacket(&m_pkt));
    EXPECT_FALSE(reader.ReadPacket(nullptr));
    EXPECT_EQ(reader.readNumOfPackets(&m_pkt), 1U);
    EXPECT_EQ(reader.readNumOfPackets(&m_pkt), 2U) << "counting starts over";
    EXPECT_EQ(read_all(reader).size(), 2U);
    ASSERT_TRUE(looping.Create(m_dir.write("two", two).c_str(), 5));
    EXPECT_EQ(read_all(looping).size(), 6U) << "the pass in which the loop ends is finished";
    ASSERT_TRUE(empty.Create(m_dir.write("empty", PcapText().header()).c_str(), 5));
    EXPECT_FALSE(empty.ReadPacket(&m_pkt));
}

TEST_F(CaptureFile, OneThatCannotBeReadIsRefusedWithAReason) {
    const auto refusal = [](const std::string& path) {
        testing::internal::CaptureStdout();
        EXPECT_EQ(CCapReaderFactory::CreateReader(path.c_str(), 0), nullptr);
        return testing::internal::GetCapturedStdout();
    };
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
    for (const std::string& path :
         {m_dir.write("text %s%n", "this is no capture\n"), m_dir.write("noise", noise),
          m_dir.write("nsec", nsec_magic), m_dir.write("head", nsec_magic.substr(0, 23)), m_dir.path(), fifo})
        EXPECT_NE(refusal(path).find("\nERROR: file " + path +
                                     " format not supported\nERROR: formats supported are "
                                     "LIBPCAP and ERF. other formats are deprecated\n"),
                  std::string::npos)
            << path;
}

TEST_F(CaptureFile, AFrameInMemoryIsGivenOnceAndAWholeFileOncePerProcess) {
    Bytes frame = test::sample_frames().front();
    auto reader = CCapReaderFactory::CreateReader(frame.data(), static_cast<uint16_t>(frame.size()));
    EXPECT_EQ(read_all(*reader), (std::vector<Frame>{{0, frame}}));

    std::string path = m_dir.file("dns");
    test::write_pcap(path, test::sample_flow("dns").frames);
    auto first = CCapReaderFactory::CreateWholeCapReader(path.c_str(), 3);
    auto second = CCapReaderFactory::CreateWholeCapReader(path.c_str(), 0);
    ASSERT_TRUE(first && second);
    EXPECT_TRUE(first->ReadPacket(&m_pkt));
    EXPECT_EQ(CWholeCapReader::getLpPackets(*second).size(), 1U);
    EXPECT_FALSE(first->ReadPacket(&m_pkt));
}

TEST_F(Erf, OnlyEthernetRecordsInTheOrderOfTheirTimesPass) {
    std::string good = bytes_of({.ts = 5, .rlen = 40, .wlen = 22});
    std::string ten = good + good + good + good + good;
    ten += ten;
    for (const std::string& file : {std::string(), std::string("too short"), good + good,
                                    bytes_of({.flags = 0x3F}), ten + bytes_of({.ts = 4, .type = 1})})
        EXPECT_TRUE(opens(file)) << file.size();
    for (const std::string& file : {bytes_of({.flags = 0x40}), bytes_of({.flags = 0x80}),
                                    good + bytes_of({.ts = 5, .type = 1}), good + bytes_of({.ts = 4})})
        EXPECT_FALSE(opens(file)) << file.size();
}

TEST_F(Erf, AFrameIsAsLongAsOnTheWireButWithinItsRecord) {
    EXPECT_EQ(sizes(bytes_of({.rlen = 2015, .wlen = 1997})), Sizes({1997}));
    EXPECT_EQ(sizes(bytes_of({.rlen = 78, .wlen = 42}) + bytes_of({.rlen = 28, .wlen = 10})),
              Sizes({42, 10}));
    EXPECT_EQ(sizes(bytes_of({.rlen = 78, .wlen = 2000})), Sizes({60}));
    EXPECT_EQ(m_pkt.GetPktBuffer()[59], 59) << "the padding is no part of the frame";
    EXPECT_EQ(sizes(bytes_of({.rlen = 18, .wlen = 40})), Sizes({}));
    EXPECT_EQ(sizes(bytes_of({.rlen = 40, .wlen = 22}).substr(0, 39)), Sizes({}));
    EXPECT_EQ(m_printed, "");
    const std::string good = bytes_of({.rlen = 40, .wlen = 22});
    for (const Record& bad : {Record{.rlen = 2016, .wlen = 1998}, Record{.rlen = 2015, .wlen = 2001},
                              Record{.rlen = 17}, Record{.rlen = 16, .wlen = 5}, Record{.rlen = 0}}) {
        EXPECT_EQ(sizes(good + bytes_of(bad) + good), Sizes({22})) << bad.rlen;
        EXPECT_EQ(m_printed, " ERF packet size too big  ");
    }
}

TEST_F(Erf, TimesAreSecondsAndABinaryFraction) {
    EXPECT_EQ(sizes(bytes_of({.ts = 7ULL << 32 | 0x80000000, .rlen = 19, .wlen = 1})), Sizes({1}));
    EXPECT_EQ(m_pkt.time_sec, 7U);
    EXPECT_EQ(m_pkt.time_nsec, 500000000U);
    sizes(bytes_of({.ts = 0xFFFFFFFF, .rlen = 19, .wlen = 1}));
    EXPECT_EQ(m_pkt.time_nsec, 999999999U);
}

TEST_F(CaptureFile, NanosecondsAreWrittenAsTheyAre) {
    {
        CErfFileWriter erf;
        CPcapFileWriter pcap;
        ASSERT_TRUE(erf.Create(m_dir.file("erf").c_str()) && pcap.Create(m_dir.file("pcap").c_str()));
        m_pkt.time_sec = 0x01020304;
        m_pkt.time_nsec = 999999999;  // 0x3B9AC9FF
        EXPECT_TRUE(pcap.write_packet(&m_pkt));
        m_pkt.SetPktLen(65518);
        EXPECT_FALSE(erf.write_packet(&m_pkt)) << "the record's length has 16 bits";
        m_pkt.SetPktLen(3);
        EXPECT_TRUE(erf.write_packet(&m_pkt));
    }
    Bytes expected = test::from_hex("ffc99a3b0403020102000015000000030000000000");
    EXPECT_EQ(test::read_file(m_dir.file("erf")), std::string(expected.begin(), expected.end()));
    const std::string pcap =
        PcapText().words({0xA1B23C4D, 0x00040002, 0, 0, 2000, 1, 0x01020304, 999999999, 0, 0});
    EXPECT_EQ(test::read_file(m_dir.file("pcap")), pcap);
}
