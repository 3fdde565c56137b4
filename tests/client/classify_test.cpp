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
#include <fstream>
#include <memory>

#include "client/classify/file_reader.h"
#include "client/classify/link_layer.h"
#include "client/classify/pace.h"
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
using testing::AnyOf;
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

/** One that is closed in the end, as HTTP that goes on and on. */
std::vector<Bytes> long_flow(size_t size) {
    const std::vector<Bytes>& flow = sample_flow("http").frames;
    std::vector<Bytes> frames = flow;
    while (frames.size() < size)
        frames.insert(frames.end(), flow.begin() + 3, flow.end() - 3);
    frames.resize(size);
    return frames;
}

/** The file that it pushes has something in it. */
bool has_pushed(const Program& program) {
    const std::string fds = "/proc/" + std::to_string(program.pid()) + "/fd";
    return eventually([&] {
        std::error_code ignored;
        const fs::directory_iterator all(fds, ignored);
        return std::any_of(begin(all), end(all), [&](const auto& fd) {
            return fs::read_symlink(fd.path(), ignored).string().rfind("/memfd:brumectl", 0) == 0 &&
                   fs::file_size(fd.path(), ignored) > 0;
        });
    });
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
    EXPECT_EQ(expected["protocols"]["HTTP"]["packets"].asUInt(), frames.size()) << "the handshake, too";
    EXPECT_EQ(expected["total"]["flows"].asUInt(), 1U);

    const Bytes ip = from_hex("0800");
    write_swapped_pcap(file("swapped"), frames);
    write_erf(file("erf"), frames);
    const auto linked = [&](const char* name, uint32_t link, const char* head) {
        return m_dir.write(name, pcap_of(frames, USEC, link, from_hex(head), 14));
    };
    for (const std::string& path : {
             file("swapped"),
             file("erf"),
             m_dir.write("nanoseconds", pcap_of(frames, NSEC, DLT_EN10MB)),
             linked("raw", 101, ""),
             linked("null", DLT_NULL, "00000002"),
             linked("loop", DLT_LOOP, "00000002"),
             linked("cooked", DLT_LINUX_SLL, "00000000000000000000000000000800"),
             linked("cooked2", DLT_LINUX_SLL2, "0800000000000000000000000000000000000000"),
             linked("ppp", DLT_PPP, "0021"),
             linked("ppp short", DLT_PPP, "ff0321"),
             linked("ppp serial", DLT_PPP_SERIAL, "ff030021"),
             linked("ppp direction", DLT_PPP_WITH_DIR, "00ff030021"),
             linked("hdlc", DLT_C_HDLC, "0f000800"),
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
    for (const std::string& packing : {read_file(file("pcapng")), read_file(file("gzip"))})
        expect({{"-"}, 0, HasSubstr("HTTP "), "", packing});

    const std::string addresses = "000000000001000000000002";
    for (const char* around :
         {"810000070800", "81000007810000080800", "88a80007810000080800", "910000070800",
          "88641100000100000021", "884700001140", "88470000104000002140", "0040aaaa030000000800"}) {
        const std::string head = addresses + around;
        const Json::Value found = document({linked("tagged", DLT_EN10MB, head.c_str())});
        EXPECT_EQ(found["protocols"]["HTTP"]["packets"].asUInt(), frames.size()) << head << found;
        EXPECT_EQ(found["total"]["bytes"].asUInt64(),
                  expected["total"]["bytes"].asUInt64() + frames.size() * (head.size() / 2 - 14))
            << head;
    }
}

TEST_F(Classify, WhatIsNoPacketIsToldByItsReason) {
    std::vector<Bytes> frames = sample_flow("dns").frames;
    const size_t whole = frames.size();
    frames.push_back(ether_frame(ETHER_ARP, ByteWriter().fill(46)));
    frames.push_back(ether_frame(0x88CC, ByteWriter().fill(46)));
    frames.push_back(ether_frame(0x88CC, ByteWriter().fill(46)));
    frames.push_back(ether_frame(0x0800, ByteWriter().bytes(from_hex("45000fff")).fill(42)));
    write_pcap(file("mixed"), frames);
    const Json::Value found = document({file("mixed")})["not_decoded"];
    EXPECT_EQ(found["packets"].asUInt(), frames.size() - whole);
    EXPECT_EQ(found["reasons"], parse(R"({"ARP":1,"LLDP":2,"IP headers that can't be":1})"));
    expect(
        {{file("mixed")}, 0, HasSubstr("4 packets not decoded: 2 LLDP, 1 IP headers that can't be, 1 ARP")});
}

TEST_F(Classify, FlowsAndHostsAreListedForPeopleAndForPrograms) {
    write_pcap(file("capture"), sample_frames());
    const Json::Value found = document({"--flows", "--hosts", file("capture")})["files"][0];
    EXPECT_EQ(found["flows"].size(), found["total"]["flows"].asUInt());
    EXPECT_GE(found["hosts"].size(), 2U);
    expect({{"--flows", "--hosts", "--csv", file("flows.csv"), file("capture")},
            0,
            AllOf(HasSubstr(" -> "), HasSubstr("HOST "), HasSubstr("PROTOCOL "), HasSubstr("FLOWS"))});
    const std::string csv = read_file(file("flows.csv"));
    EXPECT_THAT(csv, StartsWith("file,client,client_port,server,"));
    EXPECT_EQ(std::count(csv.begin(), csv.end(), '\n'), found["flows"].size() + 1);
    expect({{"--flows", "--no-reset", file("capture")}, 2, "", HasSubstr("of a path of the capture's own")});
}

TEST_F(Classify, ALargeCaptureGoesInPiecesThatShareTheirFlows) {
    write_pcap(file("large"), long_flow(5000));
    for (const char* how : {"--packets", "--flows"}) {
        const Json::Value found = document({how, file("large")});
        EXPECT_GT(found["files"][0]["pieces"].asInt(), 1) << how;
        EXPECT_EQ(found["protocols"]["HTTP"]["packets"].asUInt(), 5000U) << how;
        EXPECT_EQ(found["total"]["flows"].asUInt(), 1U) << how;
    }
}

TEST_F(Classify, RunsAtTheSameTimeAndLiveTrafficDontSeeEachOther) {
    std::vector<Bytes> frames = long_flow(100000);  // so that they do run at the same time
    write_pcap(file("a"), frames);
    const std::vector<Bytes> more = sample_frames();
    frames.insert(frames.end(), more.begin(), more.end());
    write_pcap(file("b"), frames);
    m_daemon.result("push_pcap",
                    parse(R"({"type":"filename","reset":false,"filename":")" + file("b") + "\"}"));
    const Json::Value live = m_daemon.result("flows.summary");
    const std::string alone[] = {brumectl({"--json", "classify", file("a")}, setup()).out,
                                 brumectl({"--json", "classify", file("b")}, setup()).out};
    Program a({"--json", "classify", file("a")}, setup()), b({"--json", "classify", file("b")}, setup());
    EXPECT_EQ(a.wait() + b.wait(), 0);
    EXPECT_EQ(parse(a.out())["protocols"], parse(alone[0])["protocols"]);
    EXPECT_EQ(parse(b.out())["protocols"], parse(alone[1])["protocols"]);
    EXPECT_EQ(m_daemon.result("flows.summary"), live);
}

TEST_F(Classify, EveryWayOutClosesThePathAndAnotherThatTookItsPlaceIsNoticed) {
    write_pcap(file("capture"), long_flow(20000));
    const std::string bytes = read_file(file("capture"));
    signal(SIGPIPE, SIG_IGN);  // a program that has ended doesn't read
    ASSERT_EQ(mkfifo(file("pipe").c_str(), 0600), 0);
    const auto start = [&] {
        auto program = std::make_unique<Program>(std::vector<std::string>{"classify", file("pipe")}, setup());
        std::ofstream pipe(file("pipe"), std::ios::binary);
        pipe << bytes.substr(0, bytes.size() / 2) << std::flush;
        EXPECT_TRUE(has_pushed(*program));
        return std::pair(std::move(program), std::move(pipe));
    };
    for (int i = 0; i < 9; ++i) {  // one more than there can be at once
        auto [program, pipe] = start();
        EXPECT_EQ(program->end(i % 2 == 0 ? SIGINT : SIGTERM), 128 + (i % 2 == 0 ? SIGINT : SIGTERM));
        EXPECT_EQ(program->out() + program->err(), "");
    }
    auto [program, pipe] = start();
    m_daemon.result("deactivate");
    m_daemon.result("activate", parse(R"({"resources":{"max_flows":1000}})"));
    pipe << bytes.substr(bytes.size() / 2);
    pipe.close();
    EXPECT_EQ(program->wait(), 1);
    EXPECT_THAT(program->err(), AnyOf(HasSubstr("has ended on the way"), HasSubstr("active")));
}

TEST_F(Classify, WithoutFlowMethodsPacketsCountUnderWhatWasKnownWhenTheyCame) {
    write_pcap(file("capture"), sample_flow("http").frames);
    expect({{"--no-reset", file("capture")}, 0, AllOf(HasSubstr("HTTP "), Not(HasSubstr("FLOWS")))});
    const Daemon inert({.args = {"-a"}, .engine_dir = INERT_ENGINE_DIR});
    expect_step({{"classify", file("capture")}, 0, HasSubstr("bench"), HasSubstr("tells no flows")},
                {.socket = inert.socket_path()});
}

TEST_F(Classify, MethodsOfTheEngineAreWordsWhileItIsLoaded) {
    const std::vector<Step> steps = {
        {{"flows.summary"}, 0, HasSubstr("instance")},
        {{"flows.list", "--port", "x"}, 2, "", HasSubstr("'x'")},
        {{"flows.lst"}, 2, "", HasSubstr("did you mean 'flows.list'?")},
        {{"flows.list", "--help"}, 0, HasSubstr("--cursor")},
        {{"--help"}, 0, HasSubstr("flows.hosts")},
        {{"schema"}, 0, HasSubstr("\"flows.close\"")},
        {{"complete", "--line", "brumectl flows.list --so"}, 0, HasSubstr("--sort")},
        {{"-s", "/nonexistent", "flows.list"}, 2, "", HasSubstr("while it can be asked")},
        {{"-s", "/nonexistent", "--help"}, 0, Not(HasSubstr("flows."))},
    };
    expect_steps(steps, setup());
}

TEST_F(Classify, ABadFileDoesNotEndTheRunButIsToldInTheEnd) {
    write_pcap(file("good"), sample_flow("dns").frames);
    m_dir.write("junk", "no capture at all");
    m_dir.write("empty", "");
    m_dir.write("wifi", pcap_of(sample_flow("dns").frames, USEC, 105));
    const std::string good = read_file(file("good"));
    m_dir.write("whole", good.substr(0, good.size() - 1));
    expect(
        {{file("junk"), file("wifi"), file("whole"), file("good"), file("empty"), file("none"), file("tmp")},
         1,
         HasSubstr("DNS"),
         AllOf(HasSubstr("link type 105"), HasSubstr("damaged after"), HasSubstr("an empty file"),
               HasSubstr("No such file"), HasSubstr("a folder"), HasSubstr("6 of 7 files"))});
    expect({{"--filter", "no filter", file("good")}, 2, "", HasSubstr("bad filter 'no filter'")});
}

TEST_F(Classify, ReportsStandAloneAndReplaceTheirFileOnlyWhenTheyAreWhole) {
    write_pcap(file("<a>&.pcap"), sample_frames());
    m_dir.write("report.html", "old");
    expect({{"--report", file("report.html"), file("<a>&.pcap")}, 0, _, _});
    const std::string page = read_file(file("report.html"));
    EXPECT_THAT(page, AllOf(StartsWith("<!DOCTYPE html>"), HasSubstr("<h3>Flows"), HasSubstr("<h3>Hosts"),
                            HasSubstr("&lt;a&gt;&amp;.pcap"), EndsWith("</html>\n")));
    for (const char* outside : {"<script", "http://", "https://", "<a>&"})
        EXPECT_THAT(page, Not(HasSubstr(outside)));
    expect({{"--report", file("tmp"), file("<a>&.pcap")}, 1, _, HasSubstr("/tmp is no regular file")});
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
    const std::string left = home.write("tmp/brumectl-copy-killed", "x");
    fs::last_write_time(left, fs::file_time_type::clock::now() - std::chrono::minutes(2));
    for (const std::string& path : {home.path(), temp, capture, left})
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
