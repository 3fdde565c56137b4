// `brumectl classify`: captures of every kind against the real daemon with our engine.
#include <gmock/gmock.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <pcap/dlt.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <csignal>
#include <filesystem>

#include "client/classify/file_reader.h"
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

using testing::_;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using testing::Truly;
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

    void TearDown() override { EXPECT_EQ(entries(m_temp), 0U) << "temporary files stay behind"; }

    ProgramSetup setup() const { return {.socket = m_daemon.socket_path(), .env = {{"TMPDIR", m_temp}}}; }
    void expect(Step step) const {
        step.words.insert(step.words.begin(), {"--timeout", "60", "classify"});
        expect_step(step, setup());
    }
    /** What is told of these files. */
    Json::Value document(std::vector<std::string> words) const {
        words.insert(words.begin(), {"--timeout", "60", "--json", "classify"});
        return parse(brumectl(words, setup()).out);
    }
    std::string file(const std::string& name) const { return m_dir.file(name); }

    TempDir m_dir;
    std::string m_temp = m_dir.file("tmp");
    Daemon m_daemon;
};

std::string text(const Bytes& bytes) {
    return {bytes.begin(), bytes.end()};
}

constexpr uint32_t USEC = 0xA1B2C3D4, NSEC = 0xA1B23C4D;

/** Each frame loses `cut` bytes at its start and gets `head` instead; at most `keep` bytes are in the file.
 */
std::string pcap_of(const std::vector<Bytes>& frames, uint32_t magic, uint32_t link, const Bytes& head = {},
                    size_t cut = 0, size_t keep = 65535) {
    ByteWriter out;
    out.u32(magic).u16(2).u16(4).fill(8).u32(65535).u32(link);
    for (const Bytes& frame : frames) {
        Bytes bytes = head;
        bytes.insert(bytes.end(), frame.begin() + static_cast<ptrdiff_t>(cut), frame.end());
        const auto size = static_cast<uint32_t>(bytes.size());
        bytes.resize(std::min(bytes.size(), keep));
        out.u32(1700000000).u32(5).u32(static_cast<uint32_t>(bytes.size())).u32(size).bytes(bytes);
    }
    return text(out);
}

std::string pcapng_of(const std::vector<Bytes>& frames) {
    ByteWriter out;
    out.u32(0x0A0D0D0A).u32(28).u32(0x1A2B3C4D).u16(1).u16(0).fill(8, 0xff).u32(28);
    out.u32(1).u32(20).u16(DLT_EN10MB).u16(0).u32(0).u32(20);
    for (const Bytes& frame : frames) {
        const auto size = static_cast<uint32_t>(frame.size()), padding = -size % 4;
        const uint32_t whole = 32 + size + padding;
        out.u32(6).u32(whole).u32(0).u32(0).u32(1000).u32(size).u32(size);
        out.bytes(frame).fill(padding).u32(whole);
    }
    return text(out);
}

/** As one gzip member; several behind each other are their contents behind each other. */
std::string packed(const std::string& content) {
    const TempDir dir;
    gzFile gz = gzopen(dir.file("gz").c_str(), "wb");
    gzwrite(gz, content.data(), static_cast<unsigned>(content.size()));
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

    const Bytes ip = from_hex("0800");
    write_swapped_pcap(file("swapped"), frames);
    write_erf(file("erf"), frames);
    for (const std::string& path : {
             file("swapped"),
             file("erf"),
             m_dir.write("nanoseconds", pcap_of(frames, NSEC, DLT_EN10MB)),
             m_dir.write("raw", pcap_of(frames, USEC, 101, {}, 14)),
             m_dir.write("null", pcap_of(frames, USEC, DLT_NULL, from_hex("00000002"), 14)),
             m_dir.write("loop", pcap_of(frames, USEC, DLT_LOOP, from_hex("00000002"), 14)),
             m_dir.write("cooked", pcap_of(frames, USEC, DLT_LINUX_SLL, ByteWriter().fill(14).bytes(ip), 14)),
             m_dir.write("cooked2",
                         pcap_of(frames, USEC, DLT_LINUX_SLL2, ByteWriter().bytes(ip).fill(18), 14)),
             m_dir.write("cut", pcap_of(frames, USEC, DLT_EN10MB, {}, 0, 100)),
             m_dir.write("pcapng", pcapng_of(frames)),
             m_dir.write("gzip", packed(read_file(file("classic")))),
         }) {
        const Json::Value found = document({path});
        EXPECT_EQ(found["protocols"], expected["protocols"]) << path;
        EXPECT_EQ(found["total"], expected["total"]) << path;
    }
    EXPECT_EQ(document({file("cut")})["files"][0]["padded"].asInt(),
              std::count_if(frames.begin(), frames.end(), [](const Bytes& f) { return f.size() > 100; }));
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
    m_dir.write("wifi", pcap_of(sample_flow("dns").frames, USEC, 105));
    const std::string good = read_file(file("good"));
    m_dir.write("whole", good.substr(0, good.size() - 1));
    expect({{file("junk"), file("wifi"), file("whole"), file("good")},
            1,
            HasSubstr("DNS"),
            AllOf(HasSubstr("link type 105"), HasSubstr("damaged after"), HasSubstr("3 of 4 files"))});
    expect({{"--filter", "no filter", file("good")}, 2, "", HasSubstr("bad filter 'no filter'")});
}

TEST_F(Classify, ReportsStandAloneAndReplaceTheirFileOnlyWhenTheyAreWhole) {
    write_pcap(file("<a>&.pcap"), sample_frames());
    m_dir.write("report.html", "old");
    expect({{"--report", file("report.html"), file("<a>&.pcap")}, 0, _, _});
    const std::string page = read_file(file("report.html"));
    EXPECT_THAT(
        page, AllOf(StartsWith("<!DOCTYPE html>"), HasSubstr("&lt;a&gt;&amp;.pcap"), EndsWith("</html>\n")));
    for (const char* outside : {"<script", "http://", "https://", "<a>&"})
        EXPECT_THAT(page, Not(HasSubstr(outside)));
    expect({{"--report", file("tmp"), file("<a>&.pcap")}, 1, _, HasSubstr("/tmp is no regular file")});
}

TEST_F(Classify, AnInterruptLeavesNothingBehind) {
    m_dir.write("raw", pcap_of(sample_flow("http").frames, USEC, 101, {}, 14));
    m_daemon.signal(SIGSTOP);  // the answer never comes
    Program program({"classify", "--report", file("report.html"), file("raw")}, setup());
    EXPECT_TRUE(eventually([&] { return entries(m_temp) == 1; }));
    for (const auto& copy : fs::directory_iterator(m_temp))
        EXPECT_EQ(copy.status().permissions(), fs::perms(0600)) << "the daemon is the same user";
    EXPECT_EQ(program.end(SIGTERM), 128 + SIGTERM);
    m_daemon.signal(SIGCONT);
    EXPECT_EQ(program.out(), "");
    EXPECT_EQ(entries(m_dir.path()), 2U) << "raw and tmp are all that should be there";
}

TEST_F(Classify, AnInterruptEndsTheReadingOfWhatGrowsWithoutEndWhenUnpacked) {
    ByteWriter nothing;  // blocks of no known kind, 20 GB of them
    for (int i = 0; i < 100000; ++i)
        nothing.u32(0x0BAD).u32(12).u32(12);
    std::string bomb = packed(pcapng_of({}));
    const std::string more = packed(text(nothing));
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
    EXPECT_EQ(program.end(SIGINT), 128 + SIGINT);
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
    const std::string gz = packed(pcap);
    const std::pair<std::string, const char*> CASES[] = {
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
    for (const auto& [bytes, complaint] : CASES) {
        const std::string path = m_dir.write("damaged", bytes);
        const auto tells = [](const std::string& out) { return parse(out)["files"][0].isMember("error"); };
        expect({{"--json", path}, 1, Truly(tells), HasSubstr(complaint)});
    }
}

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

TEST(Copies, OfWhatTheDaemonCantOpenAreForItsGroupOrTheUserIsTold) {
    constexpr uid_t NOBODY = 65534, SOMEBODY = 12345;
    if (geteuid() != 0) GTEST_SKIP() << "takes root, to be several users";
    if (!brumectl::FileReader{NOBODY}.may_open(OUR_ENGINE_DIR "/libcvcp_u.so"))
        GTEST_SKIP() << "no other user can read the build";
    const auto become = [](uid_t user, gid_t further) {
        return setgroups(1, &further) == 0 && setgid(user) == 0 && setuid(user) == 0;
    };
    const Daemon daemon({.args = {"-a"}, .engine_dir = OUR_ENGINE_DIR, .tcp = true, .before_exec = [&] {
                             const bool is_done = chown("..", NOBODY, NOBODY) == 0 &&
                                                  chown(".", NOBODY, NOBODY) == 0 && become(NOBODY, NOBODY);
                             if (!is_done) _exit(126);
                         }});
    const TempDir home;
    const std::string temp = home.file("tmp"), capture = home.file("capture");
    mkdir(temp.c_str(), 0700);
    write_pcap(capture, sample_flow("dns").frames);
    for (const std::string& path : {home.path(), temp, capture})
        ASSERT_EQ(chown(path.c_str(), SOMEBODY, SOMEBODY), 0);
    chmod(home.path().c_str(), 0711);
    chmod(temp.c_str(), 0711);
    chmod(capture.c_str(), 0600);
    const struct {
        uid_t user;
        gid_t further;
        testing::Matcher<std::string> err;
    } CASES[] = {
        {SOMEBODY, NOBODY, ""},
        {0, 0, ""},
        {SOMEBODY, SOMEBODY, HasSubstr("everybody on this machine can read the copies in " + temp)},
    };
    for (const auto& c : CASES)
        expect_step({{"classify", capture}, 0, HasSubstr("DNS"), c.err},
                    {.socket = "127.0.0.1:" + std::to_string(daemon.port()),
                     .env = {{"TMPDIR", temp}},
                     .before_exec = [&] {
                         if (c.user != 0 && !become(c.user, c.further)) _exit(126);
                     }});
    EXPECT_THAT(daemon.log(), Not(HasSubstr("Unable to read")));
    EXPECT_EQ(entries(temp), 0U);
}

TEST(Piece, AnswersFindTheirFramesAndStraysAreCounted) {
    const Path path{.from = "10.0.0.1", .to = "10.0.0.2", .from_port = 1000, .to_port = 53};
    brumectl::Piece piece(nullptr);
    for (const Bytes& bytes :
         {udp_frame(path, from_text("one")), udp_frame(path.reversed(), from_text("two2")),
          ether_frame(ETHER_ARP, ByteWriter().fill(46))})
        piece.add({.bytes = text(bytes), .usec = 7}, 1);
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
