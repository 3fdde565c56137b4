// `brumectl classify`: captures of every kind against the real daemon with our engine.
#include <gtest/gtest.h>
#include <pcap/dlt.h>
#include <sys/stat.h>
#include <zlib.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "client/classify/link_layer.h"
#include "client/classify/piece.h"
#include "client/classify/tally.h"
#include "client/run_program.h"
#include "support/daemon.h"
#include "support/load_params.h"
#include "tools/captures/capture_files.h"
#include "tools/captures/sample_flows.h"

namespace test {
namespace {

namespace fs = std::filesystem;

size_t entries(const std::string& folder) {
    return static_cast<size_t>(std::distance(fs::directory_iterator(folder), {}));
}

/** A daemon with an active engine, and brumectl with a folder of its own for temporary files. */
class Classify : public ::testing::Test {
 protected:
    Classify() : m_daemon({.engine_dir = OUR_ENGINE_DIR}) {
        m_daemon.result("load", load_params());
        m_daemon.result("activate", parse(R"({"resources":{"max_flows":1000}})"));
        mkdir(m_temp.c_str(), 0700);
    }

    ProgramSetup setup() const { return {.socket = m_daemon.socket_path(), .env = {{"TMPDIR", m_temp}}}; }
    Outcome run(std::vector<std::string> args) const {
        args.insert(args.begin(), {"--timeout", "60"});
        Outcome outcome = brumectl(args, setup());
        EXPECT_EQ(entries(m_temp), 0U) << "temporary files stay behind";
        return outcome;
    }
    Json::Value document(const std::vector<std::string>& files) const {
        std::vector<std::string> args = {"--json", "classify"};
        args.insert(args.end(), files.begin(), files.end());
        return parse(run(args).out);
    }
    std::string file(const std::string& name) const { return m_dir.file(name); }

    TempDir m_dir;
    std::string m_temp = m_dir.file("tmp");
    Daemon m_daemon;
};

ByteWriter pcap_head(uint32_t magic, uint32_t link) {
    return ByteWriter().u32(magic).u16(2).u16(4).u32(0).u32(0).u32(65535).u32(link);
}

void save(const std::string& path, const Bytes& bytes) {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

/** Each frame loses `cut` bytes at its start and gets `head` instead; at most `keep` bytes are in the file.
 */
Bytes pcap_of(const std::vector<Bytes>& frames, uint32_t magic, uint32_t link, const Bytes& head, size_t cut,
              size_t keep = 65535) {
    ByteWriter out = pcap_head(magic, link);
    for (const Bytes& frame : frames) {
        Bytes bytes = head;
        bytes.insert(bytes.end(), frame.begin() + static_cast<ptrdiff_t>(cut), frame.end());
        const size_t size = bytes.size();
        bytes.resize(std::min(size, keep));
        out.u32(1700000000)
            .u32(5)
            .u32(static_cast<uint32_t>(bytes.size()))
            .u32(static_cast<uint32_t>(size))
            .bytes(bytes);
    }
    return out;
}

Bytes pcapng_of(const std::vector<Bytes>& frames) {
    ByteWriter out;
    out.u32(0x0A0D0D0A).u32(28).u32(0x1A2B3C4D).u16(1).u16(0).fill(8, 0xff).u32(28);
    out.u32(1).u32(20).u16(DLT_EN10MB).u16(0).u32(0).u32(20);
    for (const Bytes& frame : frames) {
        const auto size = static_cast<uint32_t>(frame.size()), padding = -size % 4,
                   whole = 32 + size + padding;
        out.u32(6).u32(whole).u32(0).u32(0).u32(1000).u32(size).u32(size).bytes(frame).fill(padding).u32(
            whole);
    }
    return out;
}

/** As one gzip member; several behind each other are their contents behind each other. */
std::string packed(const Bytes& bytes) {
    const TempDir dir;
    gzFile gz = gzopen(dir.file("gz").c_str(), "wb");
    gzwrite(gz, bytes.data(), static_cast<unsigned>(bytes.size()));
    gzclose(gz);
    return read_file(dir.file("gz"));
}

TEST_F(Classify, EveryKindOfCaptureGivesWhatTheClassicOneGives) {
    const std::vector<Bytes>& frames = sample_flow("http").frames;
    write_pcap(file("classic"), frames);
    const Json::Value expected = document({file("classic")});
    ASSERT_GT(expected["protocols"]["HTTP"]["packets"].asUInt(), 0U) << expected;
    EXPECT_EQ(expected["total"]["packets"].asUInt(), frames.size());
    EXPECT_EQ(expected["answer"]["pkts"].size(), expected["protocols"]["HTTP"]["packets"].asUInt());

    constexpr uint32_t USEC = 0xA1B2C3D4, NSEC = 0xA1B23C4D;
    const Bytes ip = from_hex("0800");
    write_swapped_pcap(file("swapped"), frames);
    write_erf(file("erf"), frames);
    save(file("nanoseconds"), pcap_of(frames, NSEC, 1, {}, 0));
    save(file("raw"), pcap_of(frames, USEC, 101, {}, 14));
    save(file("null"), pcap_of(frames, USEC, DLT_NULL, from_hex("00000002"), 14));
    save(file("loop"), pcap_of(frames, USEC, DLT_LOOP, from_hex("00000002"), 14));
    save(file("cooked"), pcap_of(frames, USEC, DLT_LINUX_SLL, ByteWriter().fill(14).bytes(ip), 14));
    save(file("cooked2"), pcap_of(frames, USEC, DLT_LINUX_SLL2, ByteWriter().bytes(ip).fill(18), 14));
    save(file("pcapng"), pcapng_of(frames));
    const std::string plain = read_file(file("classic"));
    m_dir.write("gzip", packed(Bytes(plain.begin(), plain.end())));
    for (const char* name :
         {"swapped", "erf", "nanoseconds", "raw", "null", "loop", "cooked", "cooked2", "pcapng", "gzip"}) {
        const Json::Value found = document({file(name)});
        EXPECT_EQ(found["protocols"], expected["protocols"]) << name;
        EXPECT_EQ(found["total"], expected["total"]) << name;
    }
}

TEST_F(Classify, CutFramesAreFilledUpAndCounted) {
    const std::vector<Bytes>& frames = sample_flow("http").frames;
    save(file("cut"), pcap_of(frames, 0xA1B2C3D4, 1, {}, 0, 100));
    const Json::Value found = document({file("cut")});
    const auto longer =
        std::count_if(frames.begin(), frames.end(), [](const Bytes& f) { return f.size() > 100; });
    ASSERT_GT(longer, 0);
    EXPECT_EQ(found["files"][0]["padded"].asInt(), longer);
    EXPECT_EQ(found["protocols"]["HTTP"]["packets"].asUInt(), frames.size()) << found;
}

TEST_F(Classify, ALargeCaptureGoesInPiecesThatShareTheirFlows) {
    std::vector<Bytes> frames = sample_flow("http").frames;
    const std::vector<Bytes> flow = frames;
    while (frames.size() <= brumectl::Piece::MAX_FRAMES)
        frames.insert(frames.end(), flow.begin() + 3, flow.end() - 3);
    write_pcap(file("large"), frames);
    const Json::Value found = document({"--packets", file("large")});
    EXPECT_EQ(found["files"][0]["pieces"].asInt(), 2);
    EXPECT_FALSE(found.isMember("answer"));
    EXPECT_EQ(found["total"]["packets"].asUInt(), frames.size());
    EXPECT_EQ(found["packets"].size(), found["protocols"]["HTTP"]["packets"].asUInt());
    EXPECT_EQ(found["unclassified"]["packets"].asUInt(), 0U) << "the second piece began with new flows";
}

TEST_F(Classify, ABadFileDoesNotEndTheRunButIsToldInTheEnd) {
    write_pcap(file("good"), sample_flow("dns").frames);
    m_dir.write("junk", "no capture at all");
    m_dir.write("whole", read_file(file("good")));
    truncate(file("whole").c_str(), static_cast<off_t>(read_file(file("good")).size() - 1));
    save(file("wifi"), pcap_of(sample_flow("dns").frames, 0xA1B2C3D4, 105, {}, 0));
    const Outcome outcome = run({"classify", file("junk"), file("wifi"), file("whole"), file("good")});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_NE(outcome.out.find("DNS"), std::string::npos) << outcome.out;
    EXPECT_NE(outcome.err.find("link type 105"), std::string::npos) << outcome.err;
    EXPECT_NE(outcome.err.find("damaged after"), std::string::npos) << outcome.err;
    EXPECT_NE(outcome.err.find("3 of 4 files"), std::string::npos) << outcome.err;
    EXPECT_EQ(run({"classify", "--filter", "no filter", file("good")}).status, 2);
}

TEST_F(Classify, ReportsStandAloneAndReplaceTheirFileOnlyWhenTheyAreWhole) {
    write_pcap(file("<a>&.pcap"), sample_frames());
    m_dir.write("report.html", "old");
    EXPECT_EQ(run({"classify", "--report", file("report.html"), file("<a>&.pcap")}).status, 0);
    const std::string page = read_file(file("report.html"));
    EXPECT_EQ(page.rfind("<!DOCTYPE html>", 0), 0U);
    EXPECT_EQ(page.substr(page.size() - 8), "</html>\n");
    EXPECT_NE(page.find("&lt;a&gt;&amp;.pcap"), std::string::npos);
    for (const char* outside : {"<script", "http://", "https://", "<a>&"})
        EXPECT_EQ(page.find(outside), std::string::npos) << outside;
    EXPECT_EQ(run({"classify", "--report", file("tmp"), file("<a>&.pcap")}).status, 1) << "a folder";
}

TEST_F(Classify, AnInterruptLeavesNothingBehind) {
    save(file("raw"), pcap_of(sample_flow("http").frames, 0xA1B2C3D4, 101, {}, 14));
    m_daemon.signal(SIGSTOP);  // the answer never comes
    Program program({"classify", "--report", file("report.html"), file("raw")}, setup());
    EXPECT_TRUE(eventually([&] { return entries(m_temp) == 1; }));
    kill(program.pid(), SIGTERM);
    EXPECT_EQ(program.wait(), 128 + SIGTERM);
    m_daemon.signal(SIGCONT);
    EXPECT_EQ(program.out(), "");
    EXPECT_EQ(entries(m_temp), 0U);
    EXPECT_EQ(entries(m_dir.path()), 2U) << "raw and tmp are all that should be there";
}

TEST_F(Classify, AnInterruptEndsTheReadingOfWhatGrowsWithoutEndWhenUnpacked) {
    ByteWriter head;
    head.u32(0x0A0D0D0A).u32(28).u32(0x1A2B3C4D).u16(1).u16(0).fill(8, 0xff).u32(28);
    ByteWriter nothing;  // blocks of no known kind, 20 GB of them
    for (int i = 0; i < 100000; ++i)
        nothing.u32(0x0BAD).u32(12).u32(12);
    std::string bomb = packed(head);
    const std::string more = packed(nothing);
    for (int i = 0; i < 17000; ++i)
        bomb += more;
    m_dir.write("bomb", bomb);
    Program program({"classify", file("bomb")}, setup());
    const std::string fds = "/proc/" + std::to_string(program.pid()) + "/fd";
    std::error_code ignored;
    ASSERT_TRUE(eventually([&] {
        const fs::directory_iterator all(fds, ignored);
        return std::any_of(begin(all), end(all), [&](const auto& fd) {
            return fs::read_symlink(fd.path(), ignored) == file("bomb");
        });
    }));
    kill(program.pid(), SIGINT);
    EXPECT_EQ(program.wait(), 128 + SIGINT);
}

TEST_F(Classify, DamageIsToldAndFailsHoweverMuchCouldBeRead) {
    const std::vector<Bytes>& frames = sample_flow("http").frames;
    write_erf(file("erf"), frames);
    write_pcap(file("pcap"), frames);
    const std::string erf = read_file(file("erf"));
    const std::string pcap = read_file(file("pcap"));
    const size_t second = 18 + frames[0].size();
    std::string other_type = erf;
    other_type[second + 8] = 1;
    std::string too_big = erf;
    too_big[second + 14] = '\x7f';
    const std::string gz = packed(Bytes(pcap.begin(), pcap.end()));
    const struct {
        std::string bytes;
        const char* complaint;
    } CASES[] = {
        {erf.substr(0, 5), "no capture that can be read"},
        {erf.substr(0, 20), "damaged after 0 packets: the file ends within a record"},
        {erf.substr(0, second + 7), "damaged after 1 packet: the file ends within a record"},
        {erf.substr(0, erf.size() - 1), "the file ends within a record"},
        {other_type, "no capture that can be read"},
        {too_big, "damaged after 1 packet: a record's length is impossible"},
        {pcap.substr(0, 24 + 15), "damaged after 0 packets: "},
        {gz.substr(0, gz.size() - 10), "damaged after "},
        {gz.substr(0, 12), "no capture that can be read"},
    };
    for (const auto& c : CASES) {
        const Outcome outcome = run({"--json", "classify", m_dir.write("damaged", c.bytes)});
        EXPECT_EQ(outcome.status, 1) << c.complaint;
        EXPECT_NE(outcome.err.find(c.complaint), std::string::npos) << c.complaint << ": " << outcome.err;
        EXPECT_TRUE(parse(outcome.out)["files"][0].isMember("error")) << outcome.out;
    }
}

TEST(Piece, AnswersFindTheirFramesAndStraysAreCounted) {
    const Path path{.from = "10.0.0.1", .to = "10.0.0.2", .from_port = 1000, .to_port = 53};
    brumectl::Piece piece(false);
    for (const Bytes& bytes :
         {udp_frame(path, from_text("one")), udp_frame(path.reversed(), from_text("two2")),
          ether_frame(ETHER_ARP, ByteWriter().fill(46))})
        piece.add({.bytes = std::string(bytes.begin(), bytes.end()), .usec = 7}, 1);
    const Json::Value answers = parse(R"([{"src":"9.9.9.9:1","dst":"10.0.0.1:1000","len":46}, 5,
        {"src":"10.0.0.2:53","dst":"10.0.0.1:1000","len":46}])");
    EXPECT_EQ(piece.align(answers), 2U);
    EXPECT_EQ(piece.frames()[0].answer, nullptr);
    EXPECT_EQ(piece.frames()[1].answer, &answers[2]);
    EXPECT_FALSE(piece.frames()[2].is_ip);
}

TEST(LinkLayer, FramesTooShortForTheirLinkAreRefused) {
    std::string out;
    const unsigned char bytes[20] = {0x45};
    for (const auto& [link, size] :
         {std::pair{DLT_LINUX_SLL2, 20}, {DLT_LINUX_SLL, 16}, {DLT_NULL, 4}, {DLT_RAW, 0}})
        EXPECT_FALSE(brumectl::link_layer::to_ethernet(link, bytes, static_cast<size_t>(size), out)) << link;
    EXPECT_TRUE(brumectl::link_layer::to_ethernet(DLT_RAW, bytes, 20, out));
}

TEST(Course, TimesOutsideTheRangeCountAtItsEdges) {
    brumectl::Course course;
    course.set_range(1000, 2000);
    course.add("A", 0, 1);
    course.add("A", UINT64_MAX, 2);
    EXPECT_EQ(course.protocols().at("A").front(), 1U);
    EXPECT_EQ(course.protocols().at("A").back(), 2U);
}

}  // namespace
}  // namespace test
