// A daemon's answers, above all those that no good daemon gives.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <memory>

#include "client/live/subscription.h"
#include "client/run_program.h"
#include "client/wire/address.h"
#include "support/client.h"
#include "support/daemon.h"
#include "support/net_namespace.h"
#include "tools/captures/capture_files.h"
#include "tools/captures/sample_flows.h"
#include "utils/unique_fd.h"

namespace test {
namespace {

using corvo::UniqueFd;
using testing::HasSubstr;
namespace fs = std::filesystem;

/** A socket where the daemon's would be. */
class Peer {
 public:
    explicit Peer(const std::string& path = {})
        : m_path(path.empty() ? m_dir.file("s") : path), m_fd(socket(AF_UNIX, SOCK_DGRAM, 0)) {
        const sockaddr_un address = brumectl::Address::of_path(m_path).unix_address();
        EXPECT_EQ(bind(m_fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
        const timeval patience = {20, 0};
        setsockopt(m_fd.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
    }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;
    ~Peer() { unlink(m_path.c_str()); }

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

    /** Gives it to the next request, which it returns. */
    std::string answer_next(const std::string& text) {
        std::string request = receive();
        answer(text);
        return request;
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

TEST(Wire, ADaemonIsAskedForItsBuildAndOneThatDoesntTellIsTakenForThePackagedOne) {
    const auto result = [](const std::string& text) { return R"({"jsonrpc":"2.0","result":)" + text + "}"; };
    const auto log = [&](const std::string& attributes) {
        return result(R"({"log":["[1] - [server][INFO ] - Attributes:     )" + attributes + R"(","more"]})");
    };
    const auto refusal = [](const std::string& text) {
        return R"({"jsonrpc":"2.0","error":{"code":-32000,"specific_err":")" + text + "\"}}";
    };
    const std::string silent = result(R"({"log":[]})");
    const struct {
        std::vector<std::string> replies;
        std::string build;
    } CASES[] = {
        {{log("optimized")}, "standalone daemon, as the one at"},
        {{log("debug, asan, slave")}, "daemon in slave mode, as the one at"},
        {{log("debug, bare metal, slave")}, "daemon in slave mode, for bare metal, as the one at"},
        {{silent, refusal("'attach' not supported in slave mode")}, "daemon in slave mode, as the one at"},
        {{silent, refusal("field 'intf' is missing")}, "standalone daemon, as the one at"},
        {{silent, refusal("what?")}, "as the one packaged with this program is"},
        {{"nonsense"}, "as the one packaged with this program is"},
    };
    for (const auto& c : CASES) {
        Peer peer;
        Program program({"check", "-"}, {.socket = peer.path(), .input = "[]"});
        peer.answer_next(result("{}"));  // to `status`
        for (const std::string& reply : c.replies)
            peer.answer_next(reply);
        EXPECT_EQ(program.wait(), 0);
        EXPECT_THAT(program.err(), HasSubstr("Judged for a "));
        EXPECT_THAT(program.err(), HasSubstr(c.build));
    }
}

TEST(Wire, AReplyThatCantBeBelievedIsAnErrorThatSaysWhy) {
    const std::pair<std::string, const char*> CASES[] = {
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
    for (const auto& [reply, complaint] : CASES) {
        SCOPED_TRACE(reply.substr(0, 100));
        Peer peer;
        Program program({"ping"}, {.socket = peer.path()});
        EXPECT_THAT(peer.answer_next(reply), HasSubstr(R"("method":"ping")"));
        EXPECT_EQ(program.wait(), 1);
        EXPECT_THAT(program.err(), HasSubstr(complaint));
        EXPECT_EQ(program.out(), "");
    }
}

TEST(Wire, AnAnswerToAnotherRequestIsPassedOver) {
    Peer peer;
    Program program({"call", "x"}, {.socket = peer.path()});
    peer.answer_next(R"({"jsonrpc":"2.0","id":7,"result":"late"})");
    peer.answer(R"({"jsonrpc":"2.0","id":1,"result":"mine"})");
    EXPECT_EQ(program.wait(), 0);
    EXPECT_EQ(program.out(), "mine\n");
}

TEST(Wire, NoAnswerReachesATerminalWithItsControlCharacters) {
    const std::pair<const char*, const char*> CASES[] = {{"--json", "a\\u001b[2Jb"},
                                                         {"--timeout=20", "a\\x1b[2Jb"}};
    for (const auto& [option, shown] : CASES) {
        Peer peer;
        Program program({option, "call", "x"}, {.socket = peer.path(), .terminal = true});
        peer.answer_next("{\"jsonrpc\":\"2.0\",\"id\":1,\"result\":\"a\x1b[2Jb\"}\n");
        EXPECT_TRUE(program.wait_for_out(shown)) << option;
        EXPECT_EQ(program.wait(), 0);
    }
}

TEST(Wire, AConfigurationIsPlayedToADaemonThatTellsNothingOfItself) {
    Peer peer;
    Program program({"run", "-"}, {.socket = peer.path(), .input = "[]"});
    for (const char* result : {"5", "{}", "5", "{}"})
        peer.answer_next(std::string(R"({"jsonrpc":"2.0","result":)") + result + "}");
    EXPECT_EQ(program.wait(), 0) << program.err();
}

constexpr const char* SUBSCRIBES = R"("op":"add")";

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

TEST(Wire, AFollowerHearsTheDaemonsUserAloneAndGivesNothingAway) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can send as somebody else";
    constexpr uid_t DAEMON = 65534;
    const TempDir dir;
    chmod(dir.path().c_str(), 0711);
    const brumectl::SubscriberSocket socket(dir.file("s"), DAEMON);
    struct stat info = {};
    ASSERT_EQ(lstat(dir.file("s").c_str(), &info), 0);
    EXPECT_EQ(info.st_uid, 0U) << "its owner could be changed by name alone";
    EXPECT_EQ(info.st_mode & 07777, 0622U);
    for (const auto& [uid, heard] : {std::pair{DAEMON, true}, {0U, true}, {1234U, false}}) {
        const pid_t sender = fork();
        if (sender == 0) {
            const sockaddr_un to = brumectl::Address::of_path(dir.file("s")).unix_address();
            const int fd = ::socket(AF_UNIX, SOCK_DGRAM, 0);
            const bool sent = setresuid(uid, uid, uid) == 0 &&
                              sendto(fd, "x", 1, 0, reinterpret_cast<const sockaddr*>(&to), sizeof(to)) == 1;
            _exit(sent ? 0 : 1);
        }
        int status = 0;
        waitpid(sender, &status, 0);
        EXPECT_EQ(status, 0) << uid;
        std::string text;
        EXPECT_EQ(socket.receive(text), heard) << uid;
    }
}

TEST(Wire, AFollowerWhoseDaemonGoesWhileItSubscribesBeginsAnewWithNothingLeftBehind) {
    const TempDir place;
    const TempDir run;
    auto peer = std::make_unique<Peer>(place.file("s"));
    Program follower({"--timeout", "1", "events", "-f"},
                     {.socket = place.file("s"), .env = {{"XDG_RUNTIME_DIR", run.path()}}});
    const auto goes_at = [&](const char* request) {
        const size_t told = follower.err().size();
        serve_until(*peer, request);
        peer.reset();
        ASSERT_TRUE(follower.wait_for_err("waiting for it", told));
        EXPECT_TRUE(std::filesystem::is_empty(place.path())) << request;
        EXPECT_TRUE(std::filesystem::is_empty(run.path())) << request;
    };
    goes_at(SUBSCRIBES);
    peer = std::make_unique<Peer>(place.file("s"));
    serve_until(*peer, SUBSCRIBES);
    ASSERT_TRUE(follower.wait_for_err("; waiting\n")) << "for one that is there, but silent";
    goes_at(R"("cmd":"log")");
    EXPECT_EQ(follower.end(SIGINT), 128 + SIGINT);
}

TEST(Wire, AFollowerThatIsInterruptedWhileItSubscribesLeavesNothingBehind) {
    Peer peer;
    const TempDir run;
    Program follower({"events", "-f"}, {.socket = peer.path(), .env = {{"XDG_RUNTIME_DIR", run.path()}}});
    serve_until(peer, SUBSCRIBES);
    EXPECT_FALSE(std::filesystem::is_empty(run.path()));
    EXPECT_EQ(follower.end(SIGINT), 128 + SIGINT);
    EXPECT_TRUE(std::filesystem::is_empty(run.path()));
}

TEST(Wire, SilenceAndAbsenceHaveStatusesOfTheirOwn) {
    Peer peer;
    expect_steps({
        {{"-s", peer.path(), "--timeout", "0.05", "ping"}, 4, "", HasSubstr("no answer from ")},
        {{"-s", "/nonexistent/socket", "ping"}, 3, "", HasSubstr("no daemon at ")},
        {{"-s", "127.0.0.1:" + std::to_string(free_port()), "ping"}, 3, "", HasSubstr("no daemon at ")},
    });
    Program waiting({"ping"}, {.socket = peer.path()});
    peer.receive();
    peer.receive();
    EXPECT_EQ(waiting.end(SIGINT), 128 + SIGINT) << "as a shell expects it";
}

TEST(Wire, ARequestThatNoDatagramHoldsIsNeverSent) {
    Peer peer;
    expect_step({{"echo", std::string(61000, 'x')}, 1, "", HasSubstr("a Unix socket takes 60000")},
                {.socket = peer.path()});
    EXPECT_FALSE(peer.has_received());
}

TEST(Wire, AConnectionThatEndsTooEarlyIsAnError) {
    for (const char* piece : {"", R"({"jsonrpc":"2.0","id":1,"resu)"}) {
        UniqueFd listener(socket(AF_INET, SOCK_STREAM, 0));
        sockaddr_in address = {AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
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
    Daemon daemon({.args = {"-a"}, .engine_dir = OUR_ENGINE_DIR, .tcp = true});
    const std::string capture = daemon.dir().file("sample.pcap");
    write_pcap(capture, sample_frames());
    const Json::Value reply = parse(brumectl({"--json", "push_pcap", capture, "--extended", "--reset"},
                                             {.socket = "127.0.0.1:" + std::to_string(daemon.port())})
                                        .out);
    EXPECT_EQ(reply["fmt"]["type"], "plain");
    EXPECT_GT(reply["fmt"]["size"].asUInt(), 4096U) << "or it wasn't packed";
    EXPECT_GT(reply["result"]["pkts"].size(), 10U);
}

TEST(OwnSocket, IsAPathWhereTheDaemonIsInAnotherNetworkAndGoesWithTheProgram) {
    std::unique_ptr<Daemon> daemon;
    {
        const NetNamespace elsewhere;
        if (!elsewhere.entered()) GTEST_SKIP() << "takes a network namespace";
        daemon = std::make_unique<Daemon>();
    }
    // Other tests' daemons, which come and go, have sockets of the same name.
    const std::string alias = daemon->dir().file("elsewhere");
    fs::create_symlink(daemon->socket_path(), alias);
    const ProgramSetup setup{.socket = alias};
    const auto ours = [&] {
        return std::count_if(fs::directory_iterator(daemon->dir().path()), {}, [](const auto& entry) {
            return entry.path().filename().string().rfind("brumectl-socket-", 0) == 0;
        });
    };
    daemon->signal(SIGSTOP);
    Program program({"ping"}, setup);
    EXPECT_TRUE(eventually([&] { return ours() == 1; }));
    program.end(SIGKILL);
    daemon->signal(SIGCONT);
    expect_step({{"ping"}, 0, HasSubstr("answer from")}, setup);
    EXPECT_EQ(ours(), 0) << "what was killed left something behind";
}

}  // namespace
}  // namespace test
