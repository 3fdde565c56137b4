// Both transports, in a scheduler that the test turns by hand.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <future>
#include <memory>
#include <string>

#include "infra/corvo_scheduler.h"
#include "server/rpc/corvo_rpc_server.h"
#include "server/rpc/corvo_rpc_transport_tcp.h"
#include "support/client.h"
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
    { EXPECT_TRUE(test::UnixClient(path).send("gone before its reply")); }
    padding = 300000;  // more than the usual send buffer holds
    const test::UnixClient next(path);
    std::string reply;
    EXPECT_TRUE(next.send("next") && settle() && next.receive(reply, 0));
    EXPECT_EQ(reply.size(), padding + 7);
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

class TcpRpc : public RpcFixture {
 protected:
    using Client = test::TcpClient;

    TcpRpc() { listen("127.0.0.1", port); }

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

    uint16_t port = test::free_port();
    static constexpr size_t MORE_THAN_SOCKETS_HOLD = 24 << 20;
};

TEST_F(TcpRpc, ARequestInPiecesGetsOneReplyAndTheConnectionCloses) {
    Client client(port);
    for (const char* piece : {"a", "b", "c"})
        EXPECT_TRUE(send_and_settle(client, piece));
    EXPECT_EQ(send(client.fd(), "u", 1, MSG_OOB), 1) << "an urgent byte is read like any other";
    EXPECT_TRUE(settle());
    EXPECT_EQ(handled, 0);
    EXPECT_TRUE(client.send("\nbehind"));
    EXPECT_EQ(receive_all(client), "re:abcu\nbehind\n");
}

TEST_F(TcpRpc, ARequestThatFillsItsReadIsServedBeforeThePeersEndCounts) {
    Client client(port);
    std::string request = std::string(16383, 'r') + "\n";
    EXPECT_TRUE(client.send(request));
    shutdown(client.fd(), SHUT_WR);
    EXPECT_EQ(receive_all(client), "re:" + request);
}

TEST_F(TcpRpc, APeerThatLeavesDuringItsRequestIsForgotten) {
    EXPECT_TRUE(settle());
    size_t before = test::open_descriptors();
    for (bool reset : {false, true}) {
        Client client(port);
        EXPECT_TRUE(send_and_settle(client, "half"));
        if (reset) client.reset_on_close();
    }
    EXPECT_TRUE(settle());
    EXPECT_EQ(test::open_descriptors(), before);
    EXPECT_EQ(handled, 0);
}

TEST_F(TcpRpc, ASlowReaderHoldsNobodyElseAndGetsItsWholeReply) {
    // The poller keeps reporting that a peer has closed its sending side, which must not keep us busy.
    for (bool half_closed : {false, true}) {
        Client slow(port);
        padding = MORE_THAN_SOCKETS_HOLD;
        EXPECT_TRUE(slow.send("slow\n"));
        if (half_closed) shutdown(slow.fd(), SHUT_WR);
        EXPECT_TRUE(settle());
        padding = 0;
        Client quick(port);
        EXPECT_TRUE(send_and_settle(quick, "quick\n"));
        EXPECT_EQ(receive_all(quick), "re:quick\n");

        std::string reply = receive_all(slow);
        EXPECT_EQ(reply.size(), 8 + MORE_THAN_SOCKETS_HOLD + 1);
        EXPECT_EQ(reply.find('\n', 8), reply.size() - 1);
    }
}

TEST_F(TcpRpc, AtTheBoundANewcomerTakesThePlaceOfTheOneThatWaitedLongest) {
    server->set_bounds(2, 0, RPCServer::MAX_HELD_BYTES);
    Client oldest(port);
    EXPECT_TRUE(send_and_settle(oldest, "half"));
    Client silent(port);
    Client newcomer(port);
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
        Client slow(port);
        padding = MORE_THAN_SOCKETS_HOLD;
        EXPECT_TRUE(send_and_settle(slow, "slow\n"));
        padding = 0;
        Client next(port);
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
    Client small(port), large(port), last(port);
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
    Client client(port);
    send_while_served(client, rpc::RpcTransportTCP::MAX_MSG_SIZE + 1);
    EXPECT_EQ(receive_all(client),
              R"({"error":{"code":-32603,"message":"request size exceeds the maximum allowed size: )" +
                  std::to_string(rpc::RpcTransportTCP::MAX_MSG_SIZE) +
                  R"( [B]"},"id":null,"jsonrpc":"2.0"})" + "\n");
    EXPECT_EQ(handled, 0);
}

}  // namespace
}  // namespace corvo
