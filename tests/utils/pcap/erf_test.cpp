#include "utils/pcap/pcap_erf.h"

#include <gtest/gtest.h>

#include "support/temp_dir.h"
#include "tools/captures/capture_files.h"
#include "tools/captures/sample_flows.h"

using namespace corvo;
using test::Bytes;
using test::ByteWriter;

namespace {

struct Record {
    uint64_t ts = 0;
    uint32_t rlen = 18;
    uint32_t wlen = 0;
    unsigned char type = 2;
    unsigned char flags = 0;
};

/** A record as long as it says, at least its header. The frame's bytes count up from 0. */
std::string bytes_of(const Record& record) {
    ByteWriter writer;
    for (int i = 0; i < 8; i++)
        writer.u8(static_cast<unsigned char>(record.ts >> 8 * i));
    writer.u8(record.type).u8(record.flags).u16(record.rlen).u16(0).u16(record.wlen);
    for (uint32_t i = 16; i < record.rlen; i++)
        writer.u8(i < 18 ? 0xEE : static_cast<unsigned char>(i - 18));
    const Bytes& bytes = writer;
    return {bytes.begin(), bytes.end()};
}

class Erf : public testing::Test {
 protected:
    bool opens(const std::string& content) {
        m_reader = std::make_unique<CErfFileReader>();
        return m_reader->Create(m_dir.write("x.erf", content).c_str(), 0);
    }
    /** The sizes of the frames in a file that opens. */
    std::vector<size_t> sizes(const std::string& content) {
        EXPECT_TRUE(opens(content));
        std::vector<size_t> result;
        testing::internal::CaptureStdout();
        while (m_reader->ReadPacket(&m_pkt))
            result.push_back(m_pkt.GetPktLen());
        m_printed = testing::internal::GetCapturedStdout();
        return result;
    }

    test::TempDir m_dir;
    std::unique_ptr<CErfFileReader> m_reader;
    CCapPkt m_pkt;
    std::string m_printed;
};

using Sizes = std::vector<size_t>;

}  // namespace

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
}

TEST_F(Erf, ARecordOfAnImpossibleSizeEndsTheFile) {
    std::string good = bytes_of({.rlen = 40, .wlen = 22});
    for (const Record& bad : {Record{.rlen = 2016, .wlen = 1998}, Record{.rlen = 2015, .wlen = 2001},
                              Record{.rlen = 17}, Record{.rlen = 16, .wlen = 5}, Record{.rlen = 0}}) {
        SCOPED_TRACE(bad.rlen);
        EXPECT_EQ(sizes(good + bytes_of(bad) + good), Sizes({22}));
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

TEST_F(Erf, WrittenFramesAreReadBackByTheFactory) {
    std::vector<Bytes> frames = test::sample_frames();
    test::write_erf(m_dir.file("sample.erf"), frames);
    auto reader = CCapReaderFactory::CreateReader(m_dir.file("sample.erf").c_str(), 0);
    ASSERT_NE(reader, nullptr);
    for (const Bytes& frame : frames) {
        ASSERT_TRUE(reader->ReadPacket(&m_pkt));
        EXPECT_EQ(Bytes(m_pkt.GetPktBuffer(), m_pkt.GetPktBuffer() + m_pkt.GetPktLen()), frame);
    }
    EXPECT_FALSE(reader->ReadPacket(&m_pkt));
}

TEST_F(Erf, AWrittenRecordHoldsNanosecondsInItsFraction) {
    {
        CErfFileWriter writer;
        ASSERT_TRUE(writer.Create(m_dir.file("x.erf").c_str()));
        m_pkt.SetPktLen(65518);
        EXPECT_FALSE(writer.write_packet(&m_pkt)) << "the record's length has 16 bits";
        m_pkt.time_sec = 0x01020304;
        m_pkt.time_nsec = 999999999;  // 0x3B9AC9FF
        m_pkt.SetPktLen(3);
        EXPECT_TRUE(writer.write_packet(&m_pkt));
    }
    Bytes expected = test::from_hex("ffc99a3b0403020102000015000000030000000000");
    EXPECT_EQ(test::read_file(m_dir.file("x.erf")), std::string(expected.begin(), expected.end()));
}
