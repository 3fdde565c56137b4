// A daemon's answers, above all those that no good daemon gives.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <memory>

#include "client/run_program.h"
#include "support/client.h"
#include "support/daemon.h"
#include "tools/captures/capture_files.h"
#include "tools/captures/sample_flows.h"
#include "utils/unique_fd.h"

namespace test {
namespace {

using corvo::UniqueFd;
using testing::HasSubstr;

/** A socket where the daemon's would be. */
class Peer {
 public:
    Peer() : Peer(std::string()) {}
    explicit Peer(const std::string& path)
        : m_path(path.empty() ? m_dir.file("s") : path), m_fd(socket(AF_UNIX, SOCK_DGRAM, 0)) {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        m_path.copy(address.sun_path, sizeof(address.sun_path) - 1);
        EXPECT_EQ(bind(m_fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
        const timeval patience = {20, 0};
        setsockopt(m_fd.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
    }

    ~Peer() { unlink(m_path.c_str()); }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    const std::string& path() const { return m_path; }

    std::string receive() {
        char text[65536];
        m_len = sizeof(m_from);
        ssize_t size =
            recvfrom(m_fd.get(), text, sizeof(text), 0, reinterpret_cast<sockaddr*>(&m_from), &m_len);
        return {text, size < 0 ? 0 : static_cast<size_t>(size)};
    }

    void answer(const std::string& text) {
        sendto(m_fd.get(), text.data(), text.size(), 0, reinterpret_cast<sockaddr*>(&m_from), m_len);
    }

    bool has_received() {
        char byte;
        return recv(m_fd.get(), &byte, 1, MSG_DONTWAIT | MSG_PEEK) >= 0;
    }

 private:
    TempDir m_dir;
    std::string m_path;
    UniqueFd m_fd;
    sockaddr_un m_from = {};
    socklen_t m_len = 0;
};

std::string packed(const std::string& size, const std::string& base64) {
    return R"({"jsonrpc":"2.0","id":1,"fmt":{"type":"lz4","size":)" + size + R"(},"result":")" + base64 +
           "\"}\n";
}

TEST(Wire, ADaemonThatEndsWithTheRequestInHandIsMissedLongBeforeTheTimeout) {
    auto peer = std::make_unique<Peer>();
    Program program({"--timeout", "60", "ping"}, {.socket = peer->path()});
    EXPECT_THAT(peer->receive(), HasSubstr("ping"));
    peer.reset();
    EXPECT_EQ(program.wait(), 3) << program.err();
}

TEST(Wire, AReplyThatCantBeBelievedIsAnErrorThatSaysWhy) {
    const struct {
        std::string reply;
        const char* complaint;
    } CASES[] = {
        {"", "no JSON"},
        {"hello", "no JSON"},
        {R"({"jsonrpc":"2.0","id":1,"result":{"ts")", "no JSON"},
        {std::string(5000, '['), "no JSON"},
        {"[]", "no JSON-RPC 2.0 response"},
        {R"({"id":1,"result":{}})", "no JSON-RPC 2.0 response"},
        {R"({"jsonrpc":"2.0","id":1,"error":5})", "no JSON-RPC 2.0 response"},
        {R"({"jsonrpc":"2.0","id":1,"error":{"code":"x","message":7}})", "an error without a text"},
        {R"({"jsonrpc":"2.0","id":null,"error":{"code":-32700,"message":"Bad"}})", "Bad"},
        {R"({"jsonrpc":"2.0","id":1,"error":{"specific_err":"own \u001b[2Jwords","message":"m"}})",
         "own \\x1b[2Jwords"},
        {packed("18446744073709551615", "AAAA"), "lies about its size"},
        {packed("-1", "AAAA"), "no size"},
        {packed("100", ""), "damaged"},
        {packed("100", "AAAA"), "damaged"},
        {packed("4", "MG5vCg=="), "damaged"},
        {packed("3", "MHtdCg=="), "no JSON"},
    };
    for (const auto& c : CASES) {
        SCOPED_TRACE(c.reply.substr(0, 100));
        Peer peer;
        Program program({"ping"}, {.socket = peer.path()});
        EXPECT_THAT(peer.receive(), HasSubstr(R"("method":"ping")"));
        peer.answer(c.reply);
        EXPECT_EQ(program.wait(), 1);
        EXPECT_THAT(program.err(), HasSubstr(c.complaint));
        EXPECT_EQ(program.out(), "");
    }
}

TEST(Wire, AnAnswerToAnotherRequestIsPassedOver) {
    Peer peer;
    Program program({"call", "x"}, {.socket = peer.path()});
    peer.receive();
    peer.answer(R"({"jsonrpc":"2.0","id":7,"result":"late"})");
    peer.answer(R"({"jsonrpc":"2.0","id":1,"result":"mine"})");
    EXPECT_EQ(program.wait(), 0);
    EXPECT_EQ(program.out(), "mine\n");
}

TEST(Wire, NoAnswerReachesATerminalWithItsControlCharacters) {
    for (const char* option : {"--json", "--timeout=20"}) {
        Peer peer;
        Program program({option, "call", "x"}, {.socket = peer.path(), .terminal = true});
        peer.receive();
        peer.answer("{\"jsonrpc\":\"2.0\",\"id\":1,\"result\":\"a\x1b[2Jb\"}\n");
        EXPECT_TRUE(program.wait_for_out("a\\x1b[2Jb")) << option;
        EXPECT_EQ(program.wait(), 0);
    }
}

TEST(Wire, AConfigurationIsPlayedToADaemonThatTellsNothingOfItself) {
    Peer peer;
    Program program({"run", "-"}, {.socket = peer.path(), .input = "[]"});
    for (const char* reply :
         {R"({"jsonrpc":"2.0","id":1,"result":5})", R"({"jsonrpc":"2.0","id":2,"result":{}})"}) {
        peer.receive();
        peer.answer(reply);
    }
    EXPECT_EQ(program.wait(), 0) << program.err();
}

/** Answers as a daemon would, up to a request with `last` in it. */
void serve_until(Peer& peer, const std::string& last) {
    for (std::string request = peer.receive(); request.find(last) == std::string::npos;
         request = peer.receive()) {
        ASSERT_FALSE(request.empty());
        const std::string id = std::to_string(parse(request)["id"].asInt());
        const bool is_log = request.find("\"log\"") != std::string::npos;
        peer.answer(
            R"({"jsonrpc":"2.0","id":)" + id +
            (is_log ? R"(,"result":{"notif":{"log":[]}}})" : R"(,"result":{"pid":5,"ls":[{"name":"x"}]}})"));
    }
}

TEST(Wire, AFollowerWhoseDaemonGoesWhileItSubscribesBeginsAnewWithNothingLeftBehind) {
    constexpr const char* SUBSCRIBES = R"("op":"add")";
    constexpr const char* ASKS_FOR_THE_PAST = R"("cmd":"log")";
    const TempDir place;
    const TempDir run;
    Program follower({"--timeout", "1", "events", "-f"},
                     {.socket = place.file("s"), .env = {{"XDG_RUNTIME_DIR", run.path()}}});
    for (const char* last : {SUBSCRIBES, ASKS_FOR_THE_PAST}) {
        SCOPED_TRACE(last);
        const size_t told = follower.err().size();
        auto peer = std::make_unique<Peer>(place.file("s"));
        serve_until(*peer, last);
        peer.reset();
        ASSERT_TRUE(
            eventually([&] { return follower.err().find("waiting for it", told) != std::string::npos; }));
        for (const std::string& folder : {place.path(), run.path()})
            EXPECT_TRUE(std::filesystem::is_empty(folder)) << folder;
    }
    Peer silent(place.file("s"));
    serve_until(silent, SUBSCRIBES);
    ASSERT_TRUE(follower.wait_for_err("; waiting\n"));
    serve_until(silent, SUBSCRIBES);
    kill(follower.pid(), SIGINT);
    EXPECT_EQ(follower.wait(), 128 + SIGINT);
    EXPECT_TRUE(std::filesystem::is_empty(run.path()));
}

TEST(Wire, SilenceAndAbsenceHaveStatusesOfTheirOwn) {
    Peer peer;
    EXPECT_EQ(brumectl({"--timeout", "0.05", "ping"}, {.socket = peer.path()}).status, 4);
    EXPECT_EQ(brumectl({"ping"}, {.socket = "/nonexistent/socket"}).status, 3);
    EXPECT_EQ(brumectl({"ping"}, {.socket = "127.0.0.1:" + std::to_string(free_port())}).status, 3);
    Program waiting({"ping"}, {.socket = peer.path()});
    peer.receive();
    peer.receive();
    kill(waiting.pid(), SIGINT);
    EXPECT_EQ(waiting.wait(), 128 + SIGINT) << "as a shell expects it";
}

TEST(Wire, ARequestThatNoDatagramHoldsIsNeverSent) {
    Peer peer;
    Outcome outcome = brumectl({"echo", std::string(61000, 'x')}, {.socket = peer.path()});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, HasSubstr("a Unix socket takes 60000"));
    EXPECT_FALSE(peer.has_received());
}

TEST(Wire, AConnectionThatEndsTooEarlyIsAnError) {
    for (const char* piece : {"", R"({"jsonrpc":"2.0","id":1,"resu)"}) {
        UniqueFd listener(socket(AF_INET, SOCK_STREAM, 0));
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t len = sizeof(address);
        ASSERT_EQ(bind(listener.get(), reinterpret_cast<sockaddr*>(&address), len), 0);
        ASSERT_EQ(listen(listener.get(), 1), 0);
        getsockname(listener.get(), reinterpret_cast<sockaddr*>(&address), &len);
        Program program({"ping"}, {.socket = "127.0.0.1:" + std::to_string(ntohs(address.sin_port))});
        UniqueFd client(accept(listener.get(), nullptr, nullptr));
        char request[512];
        ASSERT_GT(recv(client.get(), request, sizeof(request), 0), 0);
        send(client.get(), piece, strlen(piece), MSG_NOSIGNAL);
        client.reset();
        EXPECT_EQ(program.wait(), 1) << piece;
    }
}

TEST(Wire, ALargeResultComesPackedAndIsShownPlain) {
    for (bool tcp : {false, true}) {
        Daemon daemon({.args = {"-a"}, .engine_dir = OUR_ENGINE_DIR, .tcp = tcp});
        const std::string capture = daemon.dir().file("sample.pcap");
        write_pcap(capture, sample_frames());
        ProgramSetup setup{.socket =
                               tcp ? "127.0.0.1:" + std::to_string(daemon.port()) : daemon.socket_path()};
        Outcome outcome = brumectl({"--json", "push_pcap", capture, "--extended", "--reset"}, setup);
        EXPECT_EQ(outcome.status, 0) << outcome.err;
        const Json::Value reply = parse(outcome.out);
        EXPECT_EQ(reply["fmt"]["type"], "plain");
        EXPECT_GT(reply["fmt"]["size"].asUInt(), 4096U) << "or it wasn't packed";
        EXPECT_GT(reply["result"]["pkts"].size(), 10U);
    }
}

}  // namespace
}  // namespace test
