#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>

#include "server/rpc/rpc_fixture.h"
#include "utils/unique_fd.h"

namespace corvo {
namespace {

class UnixRpc : public RpcFixture {
 protected:
    std::string ask(const test::UnixClient& client, const std::string& request) {
        std::string reply;
        EXPECT_TRUE(client.send(request));
        EXPECT_TRUE(settle());
        EXPECT_TRUE(client.receive(reply, 0));
        return reply;
    }
    /** From a socket that is bound to nothing, or to a name of at most 108 bytes. */
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
    EXPECT_EQ(ask(test::UnixClient(path), "next").size(), padding + 7);
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
    for (std::string name : {path, path + std::string(120 - path.size(), 'n')}) {
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

}  // namespace
}  // namespace corvo
