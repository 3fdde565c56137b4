// Both transports, in a scheduler that the test turns by hand.
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <future>
#include <memory>
#include <string>

#include "infra/corvo_scheduler.h"
#include "server/rpc/corvo_rpc_server.h"
#include "server/rpc/corvo_rpc_transport_tcp.h"
#include "support/client.h"
#include "support/temp_dir.h"
#include "utils/unique_fd.h"

namespace corvo {
namespace {

class RpcFixture : public testing::Test {
 protected:
    template <typename... Address>
    void listen(Address... address) {
        server = std::make_shared<RPCServer>(address..., &sched, [this](const auto& request, auto& response) {
            ++handled;
            response = "re:" + request;
            response.append(padding, 'x');
        });
        server->connect();
        sched.add(server, EVENT_STATE_READ, 0);
    }

    /** Serves until nothing is ready any more; false if that doesn't end. */
    bool settle() {
        for (int i = 0; i < 2000; ++i) {
            if (!sched.wait(20)) return true;
            sched.step();
        }
        return false;
    }

    Scheduler sched;
    std::shared_ptr<RPCServer> server;
    int handled = 0;
    size_t padding = 0;  ///< added to each reply
};

class UnixRpc : public RpcFixture {
 protected:
    /** Sends from a socket without a name, or with one of at most 108 bytes. */
    UniqueFd send_from(const std::string& name) {
        UniqueFd fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        sockaddr_un own = {AF_UNIX, {}}, to = {AF_UNIX, {}};
        const socklen_t len = offsetof(sockaddr_un, sun_path) + name.copy(own.sun_path, sizeof(own.sun_path));
        if (!name.empty()) {
            EXPECT_EQ(bind(fd.get(), reinterpret_cast<sockaddr*>(&own), len), 0);
        }
        path.copy(to.sun_path, sizeof(to.sun_path) - 1);
        EXPECT_EQ(sendto(fd.get(), "x", 1, 0, reinterpret_cast<sockaddr*>(&to), sizeof(to)), 1);
        return fd;
    }

    test::TempDir dir;
    std::string path = dir.file("s");
};

TEST_F(UnixRpc, ASenderThatCannotBeAnsweredStopsNothing) {
    listen(path);
    send_from("");
    send_from(dir.file("gone before its reply"));
    padding = 300000;  // more than the usual send buffer holds
    const UniqueFd next = send_from(dir.file("next"));
    EXPECT_TRUE(settle());
    EXPECT_EQ(recv(next.get(), nullptr, 0, MSG_TRUNC | MSG_DONTWAIT), static_cast<ssize_t>(padding + 4));
    EXPECT_EQ(handled, 3);
    EXPECT_EQ(server->do_work(EVENT_EXPIRE_READY).action, EventRC::ACTION_REARM)
        << "a wake-up without a datagram";
    EXPECT_EQ(handled, 3);
}

TEST_F(UnixRpc, ASenderIsAnsweredInTheAbstractNamespaceAndWhereItsNameFillsTheField) {
    listen(path);
    for (const std::string& name :
         {std::string(1, '\0') + dir.path(), dir.path() + "/" + std::string(108, 'n')}) {
        UniqueFd client = send_from(name);
        EXPECT_TRUE(settle());
        char reply[10] = "";
        EXPECT_EQ(recv(client.get(), reply, sizeof(reply) - 1, MSG_DONTWAIT), 4);
        EXPECT_STREQ(reply, "re:x");
    }
}

TEST_F(UnixRpc, TheSocketOfASuccessorStaysWhenItsPredecessorStops) {
    listen(path);
    const std::shared_ptr<RPCServer> successor = std::make_shared<RPCServer>(path, &sched, nullptr);
    successor->connect();
    sched.remove(server.get());
    server.reset();
    EXPECT_EQ(access(path.c_str(), F_OK), 0);
}

TEST_F(UnixRpc, ReplacesAStaleFileOpensItToAllAndRemovesItAtTheEnd) {
    // The second name is too long for an address: it is cut, and the cut name is what gets replaced.
    for (const std::string& name : {path, path + std::string(120 - path.size(), 'n')}) {
        std::string bound = name.substr(0, 107);
        dir.write(bound.substr(dir.path().size() + 1), "stale");
        mode_t old = umask(077);
        listen(name);
        umask(old);
        struct stat st = {};
        ASSERT_EQ(stat(bound.c_str(), &st), 0);
        EXPECT_EQ(st.st_mode, S_IFSOCK | 0777U);
        sched.remove(server.get());
        server.reset();
        EXPECT_NE(access(bound.c_str(), F_OK), 0);
    }
}

/** One TCP connection. Its socket blocks. */
class Client {
 public:
    explicit Client(const sockaddr_in& server) : m_fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        EXPECT_EQ(connect(fd(), reinterpret_cast<const sockaddr*>(&server), sizeof server), 0);
        const timeval patience{10, 0};
        setsockopt(fd(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    }
    bool send(const std::string& bytes) const {
        return ::send(fd(), bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
    }
    /** All that comes until the connection ends. */
    std::string receive_all() const {
        std::string all, chunk(1 << 18, '\0');
        ssize_t size = 0;
        while (all.size() < TOO_MUCH && (size = recv(fd(), chunk.data(), chunk.size(), 0)) > 0)
            all.append(chunk, 0, static_cast<size_t>(size));
        EXPECT_TRUE(size == 0 || (size < 0 && errno == ECONNRESET)) << "the connection stays open";
        return all;
    }
    int fd() const { return m_fd.get(); }

 private:
    static constexpr size_t TOO_MUCH = 64 << 20;
    UniqueFd m_fd;
};

class TcpRpc : public RpcFixture {
 protected:
    TcpRpc() {
        listen("127.0.0.1", uint16_t{0});
        socklen_t size = sizeof address;
        getsockname(server->fd(), reinterpret_cast<sockaddr*>(&address), &size);
    }

    /** Runs what blocks in a thread while the server serves. */
    template <typename Work>
    auto while_served(Work work) {
        auto result = std::async(std::launch::async, work);
        while (result.wait_for(std::chrono::seconds(0)) != std::future_status::ready) {
            sched.wait(1);
            sched.step();
        }
        return result.get();
    }
    std::string receive_all(const Client& client) {
        return while_served([&] { return client.receive_all(); });
    }
    /** Sends `count` bytes; false if the connection ends before. */
    bool send_while_served(const Client& client, size_t count) {
        return while_served([&] { return client.send(std::string(count, 'r')); });
    }
    bool send_and_settle(const Client& client, const std::string& bytes) {
        return client.send(bytes) && settle();
    }

    sockaddr_in address{};
    static constexpr size_t MORE_THAN_SOCKETS_HOLD = 24 << 20;
};

TEST_F(TcpRpc, ARequestInPiecesGetsOneReplyAndTheConnectionCloses) {
    Client client(address);
    for (const char* piece : {"a", "b", "c"})
        EXPECT_TRUE(send_and_settle(client, piece));
    EXPECT_EQ(send(client.fd(), "u", 1, MSG_OOB), 1) << "an urgent byte is read like any other";
    EXPECT_TRUE(settle());
    EXPECT_EQ(handled, 0);
    EXPECT_TRUE(client.send("\nbehind"));
    EXPECT_EQ(receive_all(client), "re:abcu\nbehind\n");
}

TEST_F(TcpRpc, ARequestThatFillsItsReadIsServedBeforeThePeersEndCounts) {
    Client client(address);
    std::string request = std::string(16383, 'r') + "\n";
    EXPECT_TRUE(client.send(request));
    shutdown(client.fd(), SHUT_WR);
    EXPECT_EQ(receive_all(client), "re:" + request);
}

TEST_F(TcpRpc, APeerThatLeavesDuringItsRequestIsForgotten) {
    EXPECT_TRUE(settle());
    size_t before = test::open_descriptors();
    for (bool reset : {false, true}) {
        Client client(address);
        EXPECT_TRUE(send_and_settle(client, "half"));
        const linger abort_it{reset, 0};
        setsockopt(client.fd(), SOL_SOCKET, SO_LINGER, &abort_it, sizeof abort_it);
    }
    EXPECT_TRUE(settle());
    EXPECT_EQ(test::open_descriptors(), before);
    EXPECT_EQ(handled, 0);
}

TEST_F(TcpRpc, ASlowReaderHoldsNobodyElseAndGetsItsWholeReply) {
    // The poller keeps reporting that a peer has closed its sending side, which must not keep us busy.
    for (bool half_closed : {false, true}) {
        Client slow(address);
        padding = MORE_THAN_SOCKETS_HOLD;
        EXPECT_TRUE(slow.send("slow\n"));
        if (half_closed) shutdown(slow.fd(), SHUT_WR);
        EXPECT_TRUE(settle());
        padding = 0;
        Client quick(address);
        EXPECT_TRUE(send_and_settle(quick, "quick\n"));
        EXPECT_EQ(receive_all(quick), "re:quick\n");
        EXPECT_NE(slow.send("unread"), half_closed) << "closing on that would cut the reply";

        std::string reply = receive_all(slow);
        EXPECT_EQ(reply.size(), 8 + MORE_THAN_SOCKETS_HOLD + 1);
        EXPECT_EQ(reply.find('\n', 8), reply.size() - 1);
    }
}

TEST_F(TcpRpc, AtTheBoundANewcomerTakesThePlaceOfTheOneThatWaitedLongest) {
    server->set_bounds(2, 0, RPCServer::MAX_HELD_BYTES);
    Client oldest(address);
    EXPECT_TRUE(send_and_settle(oldest, "half"));
    Client silent(address);
    Client newcomer(address);
    EXPECT_TRUE(send_and_settle(newcomer, "new\n"));
    EXPECT_EQ(receive_all(newcomer), "re:new\n");
    EXPECT_EQ(receive_all(oldest), "");
    EXPECT_TRUE(silent.send("late\n"));
    EXPECT_EQ(receive_all(silent), "re:late\n");
}

TEST_F(TcpRpc, AReaderThatStandsStillGivesWayOnceItHasDoneSoForTooLong) {
    for (unsigned patience_ms : {50U, 3600000U}) {
        SCOPED_TRACE(patience_ms);
        server->set_bounds(1, patience_ms, RPCServer::MAX_HELD_BYTES);
        const bool patient = patience_ms > 50;
        Client slow(address);
        padding = MORE_THAN_SOCKETS_HOLD;
        EXPECT_TRUE(send_and_settle(slow, "slow\n"));
        padding = 0;
        Client next(address);
        EXPECT_TRUE(send_and_settle(next, "next\n"));
        if (patient) {
            EXPECT_FALSE(sched.exists(server.get()));
            EXPECT_EQ(receive_all(slow).size(), 8 + MORE_THAN_SOCKETS_HOLD + 1);
        }
        EXPECT_EQ(receive_all(next), "re:next\n");
        if (!patient) {
            EXPECT_LT(receive_all(slow).size(), MORE_THAN_SOCKETS_HOLD);
        }
        EXPECT_TRUE(sched.exists(server.get()));
    }
}

TEST_F(TcpRpc, TheLargestUnfinishedRequestGoesWhereAllTogetherTakeTooMuchMemory) {
    server->set_bounds(8, 1000, 7 << 20);
    Client small(address), large(address), last(address);
    for (const auto& [client, mib] : {std::pair{&small, 2}, {&large, 3}, {&last, 2}}) {
        EXPECT_TRUE(send_while_served(*client, static_cast<size_t>(mib) << 20));
        EXPECT_TRUE(settle());
    }
    EXPECT_EQ(receive_all(large), "");
    for (Client* client : {&small, &last}) {
        EXPECT_TRUE(client->send("\n"));
        EXPECT_EQ(receive_all(*client).size(), 3 + (2 << 20) + 1);
    }
}

TEST_F(TcpRpc, ALineThatNeverEndsIsRefusedAtTheLimit) {
    Client client(address);
    send_while_served(client, rpc::RpcTransportTCP::MAX_MSG_SIZE + 1);
    EXPECT_EQ(receive_all(client),
              R"({"error":{"code":-32603,"message":"request size exceeds the maximum allowed size: )" +
                  std::to_string(rpc::RpcTransportTCP::MAX_MSG_SIZE) +
                  R"( [B]"},"id":null,"jsonrpc":"2.0"})" + "\n");
    EXPECT_EQ(handled, 0);
}

}  // namespace
}  // namespace corvo
