// The pieces of `brumectl classify`.
#include <gtest/gtest.h>
#include <pcap/dlt.h>
#include <sys/stat.h>
#include <unistd.h>

#include "client/classify/file_reader.h"
#include "client/classify/link_layer.h"
#include "client/classify/pace.h"
#include "client/classify/piece.h"
#include "client/classify/tally.h"
#include "support/client.h"
#include "support/temp_dir.h"
#include "tools/captures/frame_builder.h"

namespace test {
namespace {

TEST(FileReader, MayOpenWhatTheModesLetItAndNothingBelowAClosedFolder) {
    const TempDir dir;
    const std::string file = dir.write("file", "");
    const uid_t us = geteuid(), other = us + 1;
    const gid_t group = getegid(), other_group = group + 1;
    const struct {
        mode_t folder, file;
        brumectl::FileReader reader;
        bool may;
    } CASES[] = {
        {0700, 0400, {us, {other_group}}, true},
        {0700, 0044, {us, {group}}, false},
        {0755, 0604, {other, {other_group}}, true},
        {0755, 0604, {other, {other_group, group}}, false},
        {0750, 0640, {other, {other_group, group}}, true},
        {0750, 0644, {other, {other_group}}, false},
        {0700, 0600, {other, {other_group}, true}, true},
        {0711, 0644, brumectl::FileReader::everybody(), true},
        {0700, 0644, brumectl::FileReader::everybody(), false},
    };
    for (const auto& c : CASES) {
        chmod(dir.path().c_str(), c.folder);
        chmod(file.c_str(), c.file);
        EXPECT_EQ(c.reader.may_open(file), c.may) << std::oct << c.folder << " " << c.file;
    }
}

TEST(Piece, AnswersFindTheirFramesAndStraysAreCounted) {
    const Path path{.from = "10.0.0.1", .to = "10.0.0.2", .from_port = 1000, .to_port = 53};
    brumectl::Piece piece;
    for (const Bytes& bytes :
         {udp_frame(path, from_text("one")), udp_frame(path.reversed(), from_text("two2")),
          ether_frame(ETHER_ARP, ByteWriter().fill(46))})
        piece.add(bytes.data(), static_cast<uint32_t>(bytes.size()));
    const Json::Value answers = parse(R"([{"src":"9.9.9.9:1","dst":"10.0.0.1:1000","len":46}, 5,
        {"src":"10.0.0.2:53","dst":"10.0.0.1:1000","len":46}])");
    EXPECT_EQ(piece.align(answers), 2U);
    EXPECT_EQ(piece.frames()[0].answer, nullptr);
    EXPECT_EQ(piece.frames()[1].answer, &answers[2]);
    EXPECT_FALSE(piece.frames()[2].is_ip);
}

TEST(LinkLayer, FramesTooShortForTheirHeadersAreCutHoweverShort) {
    const Bytes frame = from_hex(
        "000000000001000000000002"
        "88a80007"
        "81000008"
        "88641100000100000021"
        "45000014000000000006000000000000");
    brumectl::EthernetFrame out;
    for (uint32_t size = 0; size <= frame.size(); ++size) {
        const Bytes cut(frame.begin(),
                        frame.begin() + size);  // in memory of its own, where a sanitizer looks
        const brumectl::RawFrame raw{cut.data(), size, static_cast<uint32_t>(frame.size()), 0};
        const uint32_t reason = brumectl::link_layer::to_ethernet(DLT_EN10MB, raw, out);
        EXPECT_EQ(reason == 0 ? "" : brumectl::link_layer::reason_text(reason),
                  size < 30 ? "headers cut short" : "");
        EXPECT_TRUE(reason != 0 || out.size() == frame.size());
        for (int link : {DLT_RAW, DLT_NULL, DLT_LINUX_SLL, DLT_LINUX_SLL2, DLT_PPP, DLT_C_HDLC,
                         DLT_PPP_WITH_DIR, DLT_PPP_ETHER})
            brumectl::link_layer::to_ethernet(link, raw, out);
    }
    EXPECT_FALSE(brumectl::link_layer::is_known(105));
}

TEST(Course, StepsGrowWithTheTimeAndNoTimeIsTooFar) {
    brumectl::Course course;
    course.add("A", 1000, 1);
    course.add("A", 1191, 2);
    EXPECT_EQ(course.steps(), 192U);
    course.add("A", 1192, 4);
    EXPECT_EQ(course.step_usec(), 2U);
    EXPECT_EQ(course.protocols().at("A")[95], 2U);
    EXPECT_EQ(course.protocols().at("A")[96], 4U);
    course.add("A", 0, 8);
    course.add("A", UINT64_MAX, 16);
    EXPECT_EQ(course.protocols().at("A")[0], 15U);
    EXPECT_EQ(course.protocols().at("A")[course.steps() - 1], 16U);
}

TEST(Pace, PiecesGrowByTwiceAtMostAndShrinkAtOnce) {
    brumectl::Pace pace(1000, 20000);
    pace.took(1000, 0.5);
    EXPECT_EQ(pace.frames(), 2000U);
    pace.took(2000, 80);
    EXPECT_EQ(pace.frames(), 200U);
    pace.took(200, 1e9);
    EXPECT_EQ(pace.frames(), brumectl::Pace::LEAST);
}

}  // namespace
}  // namespace test
