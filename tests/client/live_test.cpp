// The words that stay: events, top and metrics, with the real daemon and our engine.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <list>
#include <sstream>

#include "client/live/metrics_text.h"
#include "client/live/notification.h"
#include "client/live/top_view.h"
#include "client/live/traffic.h"
#include "client/run_program.h"
#include "support/client.h"
#include "support/daemon.h"
#include "tools/captures/capture_files.h"
#include "tools/captures/sample_flows.h"

namespace brumectl {
namespace {

using test::parse;
using ::testing::_;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;
namespace fs = std::filesystem;

Json::Value subscribers(const test::Daemon& daemon) {
    return daemon.result("notifications", parse(R"({"cmd":"socket","op":"ls"})"))["ls"];
}

void subscribe(const test::Daemon& daemon, const std::string& path) {
    Json::Value params = parse(R"({"cmd":"socket","op":"add"})");
    params["socket"] = path;
    daemon.result("notifications", params);
}

std::vector<std::string> sockets_in(const std::string& folder) {
    std::vector<std::string> found;
    for (const auto& entry : fs::directory_iterator(folder))
        if (entry.is_socket()) found.push_back(entry.path().filename());
    return found;
}

void push_samples(const test::Daemon& daemon) {
    Json::Value params = parse(R"({"type":"filename","reset":false})");
    params["filename"] = daemon.dir().file("sample.pcap");
    test::write_pcap(daemon.dir().file("sample.pcap"), test::sample_frames());
    daemon.result("push_pcap", params);
}

class LiveWords : public ::testing::Test {
 protected:
    /** A runtime directory of this test's own. */
    test::ProgramSetup setup(const test::Daemon& daemon, bool terminal = false) const {
        return {
            .socket = daemon.socket_path(), .env = {{"XDG_RUNTIME_DIR", m_run.path()}}, .terminal = terminal};
    }
    test::TempDir m_run;
};

TEST(EventSequence, GapsAreCountedAndRepeatedEventsTakenOnce) {
    EventSequence sequence;
    EXPECT_EQ(sequence.missing_before(40), 0U) << "nothing is known of what came before the first";
    EXPECT_TRUE(sequence.take(40));
    EXPECT_EQ(sequence.missing_before(44), 3U);
    EXPECT_TRUE(sequence.take(44));
    EXPECT_FALSE(sequence.take(44));
    EXPECT_FALSE(sequence.take(41));
    sequence.restart();
    EXPECT_TRUE(sequence.take(1));
}

TEST_F(LiveWords, EventsAreToldAsTheyComeAndNothingStaysBehind) {
    for (int signum : {SIGINT, SIGTERM, SIGHUP}) {
        test::Daemon daemon;
        test::Program follower({"events", "-f"}, setup(daemon));
        ASSERT_TRUE(follower.wait_for_out("server.up"));
        ASSERT_TRUE(follower.wait_for_out("notif.sock.add"));
        subscribe(daemon, "/no/such\x1b[2J");
        EXPECT_TRUE(follower.wait_for_out("socket: '/no/such\\x1b[2J'"));
        EXPECT_EQ(follower.end(signum), 128 + signum);
        EXPECT_EQ(subscribers(daemon).size(), 1U) << "but the test's own";
        EXPECT_THAT(sockets_in(m_run.path()), IsEmpty());
    }
}

TEST_F(LiveWords, AFollowerOutlivesItsDaemonAndCleansUpWithoutIt) {
    test::Daemon daemon;
    test::Program follower({"events", "-f", "--sev", "warn"}, setup(daemon));
    ASSERT_TRUE(test::eventually([&] { return subscribers(daemon).size() == 1; }));
    daemon.stop();
    EXPECT_TRUE(follower.wait_for_err("waiting for it"));
    EXPECT_THAT(sockets_in(m_run.path()), IsEmpty());
    EXPECT_EQ(follower.end(SIGINT), 128 + SIGINT);
    EXPECT_THAT(follower.out(), IsEmpty()) << "no warnings, no events";
}

TEST_F(LiveWords, OverTcpAFollowersSocketIsInTheFolderForTemporaryFilesOrItIsSaidWhyNot) {
    const test::Daemon daemon({.tcp = true});
    const std::string long_folder = m_run.file(std::string(100, 'x'));
    fs::create_directory(long_folder);
    const struct {
        std::string folder;
        size_t sockets;
        const char* complaint;
    } CASES[] = {
        {m_run.path(), 1, ""},
        {long_folder, 0, "$TMPDIR is too long for the path of a socket (107 bytes): "},
        {m_run.file("none"), 0, "no socket can be made in $TMPDIR, "},
    };
    for (const auto& c : CASES) {
        test::Program follower({"events", "-f"}, {.socket = "127.0.0.1:" + std::to_string(daemon.port()),
                                                  .env = {{"XDG_RUNTIME_DIR", ""}, {"TMPDIR", c.folder}}});
        ASSERT_TRUE(follower.wait_for_out(c.sockets == 1 ? "notif.sock.add" : "server.up"));
        EXPECT_THAT(follower.err(), HasSubstr(c.complaint));
        EXPECT_EQ(sockets_in(m_run.path()).size(), c.sockets);
        EXPECT_EQ(follower.end(SIGINT), 128 + SIGINT);
        EXPECT_EQ(subscribers(daemon).size(), 0U);
        EXPECT_THAT(sockets_in(m_run.path()), IsEmpty());
    }
}

TEST_F(LiveWords, OnlySubscribersWhoseSocketsAreGoneAreRemoved) {
    const test::Daemon daemon;
    const test::UnixClient listener(daemon.socket_path());
    const int left = socket(AF_UNIX, SOCK_DGRAM, 0);
    sockaddr_un address = Address::of_path(daemon.cwd() + "/left").unix_address();
    ASSERT_EQ(bind(left, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    close(left);
    for (const std::string& path : {listener.path(), std::string("left"), std::string("/no/such")})
        subscribe(daemon, path);
    const test::Outcome done = test::brumectl({"--json", "events", "gc"}, setup(daemon));
    EXPECT_EQ(parse(done.out)["removed"], parse(R"(["left","/no/such"])")) << done.out << done.err;
    ASSERT_EQ(subscribers(daemon).size(), 1U);
    EXPECT_EQ(subscribers(daemon)[0]["name"], listener.path());
}

TEST(MetricsText, LabelsAreEscapedAndSeriesAreUnique) {
    LiveSample sample;
    sample.status = parse(R"({"state":"activated","uptime":"long","mem":7})");
    sample.protocols.value = parse(R"({"protocols":{"a\"\\\n":{"packets":3,"bytes":-1,"flows":[]}}})");
    sample.interfaces.value =
        parse(R"({"interfaces":[{"name":"e","packets":1},{"name":"e","packets":2},7]})");
    const std::string text = metrics_text(sample);
    EXPECT_THAT(text, HasSubstr("brumecpd_protocol_packets_total{protocol=\"a\\\"\\\\\\\\x0a\"} 3\n"));
    EXPECT_THAT(text, HasSubstr("brumecpd_protocol_bytes_total{protocol=\"a\\\"\\\\\\\\x0a\"} 0\n"));
    EXPECT_THAT(text, HasSubstr("brumecpd_interface_packets_total{interface=\"e\"} 1\n"));
    EXPECT_THAT(text, Not(HasSubstr("{interface=\"e\"} 2")));
    EXPECT_THAT(text, Not(HasSubstr("uptime")));
}

TEST_F(LiveWords, MetricsAreNamedByWhatTheyCanDo) {
    const test::Daemon daemon({.args = {"-a"}, .engine_dir = OUR_ENGINE_DIR});
    push_samples(daemon);
    std::istringstream lines(test::brumectl({"metrics"}, setup(daemon)).out);
    size_t families = 0;
    for (std::string line, word, name, type; std::getline(lines, line);) {
        if (!(std::istringstream(line) >> word >> word >> name >> type) || line.rfind("# TYPE ", 0) != 0)
            continue;
        ++families;
        EXPECT_EQ(name.ends_with("_total"), type == "counter") << line;
        for (const char* reserved : {"_count", "_sum", "_bucket"})
            EXPECT_FALSE(name.ends_with(reserved)) << line;
        EXPECT_NE(type + name, "counterbrumecpd_alerts_total") << "they can be cleared";
    }
    EXPECT_GT(families, 20U);
}

TEST_F(LiveWords, MetricsAreServedUntilInterrupted) {
    const test::Daemon daemon({.args = {"-a"}, .engine_dir = OUR_ENGINE_DIR});
    push_samples(daemon);
    const uint16_t port = test::free_port();
    test::Program server({"metrics", "--listen", "127.0.0.1:" + std::to_string(port)}, setup(daemon));
    ASSERT_TRUE(server.wait_for_err("serving"));
    const test::TcpClient silent(port);
    const std::pair<std::string, const char*> CASES[] = {
        {"GET /metrics HTTP/1.1\r\nHost: x\r\n\r\n", "HTTP/1.1 200 OK\r\n"},
        {"GET /metrics?x=1 HTTP/1.0\n\n", "brumecpd_protocol_packets_total{protocol=\"HTTP\"} "},
        {"GET / HTTP/1.1\r\n\r\n", "HTTP/1.1 404 "},
        {"POST /metrics HTTP/1.1\r\n\r\n", "HTTP/1.1 405 "},
        {"nonsense\r\n\r\n", "HTTP/1.1 400 "},
        {"GET /" + std::string(9000, 'x'), "HTTP/1.1 431 "},
    };
    for (const auto& [request, answer] : CASES) {
        const test::TcpClient client(port);
        client.send(request);
        EXPECT_THAT(client.receive_all(), HasSubstr(answer));
    }
    EXPECT_EQ(server.end(SIGTERM), 128 + SIGTERM);
}

TEST_F(LiveWords, WithoutAnAnswerMetricsSayThatTheDaemonIsDownAndWhy) {
    const auto absent = AllOf(StartsWith("# no daemon at "), HasSubstr("\nbrumecpd_up 0\n"));
    test::expect_step({{"metrics"}, 3, absent, HasSubstr("no daemon at ")}, {.socket = m_run.file("none")});

    const test::Daemon daemon;
    const uint16_t port = test::free_port();
    test::Program server({"--timeout", "0.7", "metrics", "--listen", "127.0.0.1:" + std::to_string(port)},
                         setup(daemon));
    ASSERT_TRUE(server.wait_for_err("serving"));
    daemon.signal(SIGSTOP);
    // One after the other they would wait longer than any of them is kept.
    std::list<test::TcpClient> crowd;
    for (int i = 0; i < 16; ++i)
        crowd.emplace_back(port);
    for (const test::TcpClient& client : crowd)
        client.send("GET /metrics HTTP/1.1\r\n\r\n");
    for (const test::TcpClient& client : crowd)
        EXPECT_THAT(client.receive_all(),
                    AllOf(HasSubstr("# no answer from "), HasSubstr("brumecpd_up 0\n")));
    daemon.signal(SIGCONT);
}

TEST(Traffic, RatesComeFromTwoSamplesOfTheSameDaemon) {
    LiveSample before;
    before.taken_ms = 1000;
    before.status = parse(R"({"pid":1})");
    before.protocols.value =
        parse(R"({"protocols":{"A":{"packets":10,"bytes":100},"B":{"packets":9,"bytes":900}}})");
    LiveSample now = before;
    now.taken_ms = 3000;
    now.protocols.value =
        parse(R"({"protocols":{"A":{"packets":4,"bytes":100},"B":{"packets":1,"bytes":1000}},
                  "open":{"A":{"packets":10,"bytes":600},"C":{"packets":2,"bytes":1}}})");
    std::vector<Traffic> rows = protocol_traffic(now, &before);
    ASSERT_EQ(rows.size(), 3U);
    EXPECT_EQ(rows[0].name, "A");
    EXPECT_DOUBLE_EQ(rows[0].packet_rate, 2);
    EXPECT_DOUBLE_EQ(rows[0].byte_rate, 300);
    EXPECT_DOUBLE_EQ(rows[1].packet_rate, 0) << "a count that went back";
    for (const TrafficOrder& order : traffic_orders()) {
        std::string names;
        for (const Traffic& row : protocol_traffic(now, &before, order))
            names += row.name;
        const std::map<char, std::string> EXPECTED = {{'r', "ABC"}, {'s', "ACB"}, {'b', "BAC"},
                                                      {'p', "ACB"}, {'f', "ABC"}, {'n', "ABC"}};
        EXPECT_EQ(names, EXPECTED.at(order.key)) << order.key;
    }
    now.status["pid"] = 2;
    EXPECT_FALSE(protocol_traffic(now, &before)[0].has_rate);
}

TEST(TopView, EverySizeIsKeptWhateverTheSampleHolds) {
    LiveSample sample;
    sample.status = parse(R"({"state":"activated","version":{"name":"long name of an engine"}})");
    for (int i = 0; i < 50; ++i) {
        const std::string name = "protocol " + std::to_string(i);
        sample.protocols.value["protocols"][name] = parse(R"({"packets":18446744073709551615,"bytes":9e99})");
        sample.alerts.value.append(parse(R"({"name":"\u001b[2Jx","sev":"severe","count":3,"last_ts":5})"));
    }
    const Terminal terminal(tmpfile());
    for (size_t width : {20U, 40U, 80U, 100U, 250U})
        for (size_t height : {1U, 5U, 12U, 24U, 100U}) {
            const TopFrame frame{.now = &sample, .width = width, .height = height};
            const std::vector<std::string> lines = top_lines(frame, terminal);
            EXPECT_EQ(lines.size(), height);
            for (const std::string& line : lines) {
                EXPECT_EQ(line.find('\x1b'), std::string::npos);
                EXPECT_LE(columns(line), width) << line;
            }
        }
}

TEST(TopView, TellsOnlyWhatIsKnown) {
    LiveSample before;
    before.taken_ms = 1000;
    before.status = parse(R"({"pid":1,"state":"activated","mem":{"total_mem":100,"free_mem":10}})");
    before.health.value = parse(R"({"state":"ok","items":{"memory":"ok"}})");
    LiveSample now = before;
    now.taken_ms = 3000;
    const auto shown = [&](const char* trouble) {
        const TopFrame frame{.now = &now, .before = &before, .trouble = trouble};
        std::string out;
        for (const std::string& line : top_lines(frame, Terminal(tmpfile())))
            out += line + "\n";
        return out;
    };
    EXPECT_THAT(shown(""),
                AllOf(HasSubstr("10.0 MiB free of 100.0 MiB\n"), HasSubstr("cpu -"), HasSubstr("health ok")));
    before.machine.cpu_sec = 1;
    now.machine = {.used_memory = 40 * MIB, .cpu_sec = 2};
    EXPECT_THAT(shown(""),
                AllOf(HasSubstr("40.0 MiB of 100.0 MiB used"), HasSubstr(" 40 %"), HasSubstr("cpu 50.0 %")));
    EXPECT_THAT(shown("gone"), AllOf(HasSubstr("no answer: gone"), HasSubstr("health unknown"),
                                     Not(HasSubstr("cpu")), Not(HasSubstr("health ok"))));
}

TEST_F(LiveWords, KeysChangeWhatIsShownAndCtrlZGivesTheTerminalBack) {
    const test::Daemon daemon({.args = {"-a"}, .engine_dir = OUR_ENGINE_DIR});
    push_samples(daemon);
    test::Program top({"top", "-d", "5"}, setup(daemon, true));
    const std::pair<const char*, const char*> KEYS[] = {
        {"", "every 5 s, by bytes a second"}, {"f", "every 5 s, by flows"},  {"-", "every 2 s, by flows"},
        {"+", "every 5 s, by flows"},         {"?", "protocols by packets"}, {"x", "PROTOCOL"},
        {"\x1a", "\x1b[?1049l\x1b[?1049h"},
    };
    size_t seen = 0;
    for (const auto& [key, shown] : KEYS) {
        seen = top.out().size();
        top.type(key);
        EXPECT_TRUE(top.wait_for_out(shown, *key == '\0' ? 0 : seen)) << shown;
    }
    top.type("q");
    EXPECT_EQ(top.wait(), 0);

    const test::Outcome once = test::brumectl({"top", "-n", "1"}, setup(daemon, true));
    EXPECT_EQ(once.status, 0);
    EXPECT_NE(once.out.find("HTTP", once.out.find("\x1b[?1049l")), std::string::npos) << "no picture stays";
    test::expect_step({{"--json", "top", "-b", "-n", "1"},
                       0,
                       AllOf(HasSubstr("\"used_memory\":"), HasSubstr("\"cpu_sec\":"))},
                      setup(daemon));
}

TEST_F(LiveWords, TheScreenComesBackOnEveryWayOut) {
    test::Daemon daemon({.args = {"-a"}, .engine_dir = OUR_ENGINE_DIR});
    push_samples(daemon);
    const auto restored = HasSubstr("\x1b[?25h\x1b[0m\x1b[?1049l");
    test::Program quit({"top", "-d", "0.1"}, setup(daemon, true));
    ASSERT_TRUE(quit.wait_for_out("HTTP"));
    quit.type("q");
    EXPECT_EQ(quit.wait(), 0);
    EXPECT_THAT(quit.out(), restored);

    test::Program interrupted({"top", "-d", "0.1"}, setup(daemon, true));
    ASSERT_TRUE(interrupted.wait_for_out("HTTP"));
    daemon.stop();
    EXPECT_TRUE(interrupted.wait_for_out("no answer: no daemon at"));
    interrupted.type("\x03");
    EXPECT_EQ(interrupted.wait(), 128 + SIGINT);
    EXPECT_THAT(interrupted.out(), restored);
    test::expect_steps({{{"top"}, 2, "", HasSubstr("terminal")},
                        {{"top", "-b", "-n", "1"}, 3, _, HasSubstr("no daemon at ")}},
                       setup(daemon));
}

}  // namespace
}  // namespace brumectl
