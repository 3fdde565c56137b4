#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "infra/corvo_socket_channel.h"
#include "infra/exports/corvo_lock.h"
#include "utils/clock.h"
#include "utils/unique_fd.h"

namespace test {
namespace {

using namespace corvo;

TEST(Channel, AMessageOfAnySizeComesOutWhole) {
    SocketChannelPair pair("pair");
    for (size_t size : {1, 4096, 100000}) {
        std::string sent(size, 'x');
        sent.back() = '\0';
        ASSERT_EQ(pair.first()->push(sent), CHANNEL_OK);
        std::string received = "old";
        EXPECT_EQ(pair.second()->pop(received, 0), CHANNEL_OK);
        EXPECT_EQ(received, sent);
    }
}

TEST(Channel, AFullOrBrokenSocketIsToldAtOnceAndWithoutASignal) {
    // Unlike a SOCK_SEQPACKET one, a datagram socket doesn't tell its reader that the peer has gone.
    for (const int type : {SOCK_DGRAM, SOCK_SEQPACKET}) {
        int fds[2];
        ASSERT_EQ(socketpair(AF_UNIX, type, 0, fds), 0);
        const UniqueFd ours(fds[0]);
        SocketChannel channel("alone", ours.get(), {}, 0);
        state_e rc = CHANNEL_OK;
        for (int i = 0; i < 100000 && rc == CHANNEL_OK; ++i)
            rc = channel.push("x");
        EXPECT_EQ(rc, CHANNEL_SEND_AGAIN);
        close(fds[1]);
        EXPECT_EQ(channel.do_work(EVENT_EXPIRE_READY).action,
                  type == SOCK_DGRAM ? EventRC::ACTION_REARM : EventRC::ACTION_DONE);
        EXPECT_EQ(channel.push("x"), CHANNEL_BROKEN);
    }
}

TEST(Channel, AHandlerMayPutAnotherInItsPlace) {
    SocketChannelPair pair("pair");
    std::string seen;
    pair.first()->set_handler([&, first = std::string(100, '1')](state_e, const std::string&, std::string&) {
        pair.first()->set_handler([&](state_e, const std::string& in, std::string&) { seen += in; });
        seen += first;
    });
    pair.second()->push("a");
    pair.second()->push("b");
    pair.first()->do_work(EVENT_EXPIRE_READY);
    EXPECT_EQ(seen, std::string(100, '1') + "b");
}

TEST(Channel, SignalsDoNotLengthenAWait) {
    SocketChannelPair pair("pair");
    const auto before = std::signal(SIGALRM, [](int) {});
    ualarm(10000, 10000);
    const uint64_t start_ms = monotonic_ms();
    std::string msg;
    EXPECT_EQ(pair.first()->pop(msg, 100), CHANNEL_TIMEOUT);
    const uint64_t took_ms = monotonic_ms() - start_ms;
    ualarm(0, 0);
    std::signal(SIGALRM, before);
    EXPECT_GE(took_ms, 99u);
    EXPECT_LT(took_ms, 5000u);
}

TEST(Channel, OneFiringServesAllThatWaitsAndSendsTheRepliesUntilAnEmptyMessageClosesIt) {
    SocketChannelPair pair("pair");
    std::string seen;
    pair.first()->set_handler([&](state_e state, const std::string& in, std::string& out) {
        seen += std::to_string(state) + in + " ";
        if (in == "question") out = "answer";
    });
    pair.second()->push("question");
    pair.second()->push("remark");
    EXPECT_EQ(pair.first()->do_work(EVENT_EXPIRE_READY).action, EventRC::ACTION_REARM);
    std::string reply;
    EXPECT_EQ(pair.second()->pop(reply, 0), CHANNEL_OK);
    EXPECT_EQ(reply, "answer");
    EXPECT_EQ(pair.second()->pop(reply, 0), CHANNEL_RECV_AGAIN);
    pair.second()->push("");
    EXPECT_EQ(pair.first()->do_work(EVENT_EXPIRE_READY).action, EventRC::ACTION_DONE);
    EXPECT_EQ(seen, "0question 0remark " + std::to_string(CHANNEL_CLOSED) + " ");
}

TEST(Channel, ATimeOutIsToldAndArmedAnew) {
    SocketChannel channel("timed", 99, {}, 70);
    EXPECT_THROW(channel.do_work(EVENT_EXPIRE_TIMEOUT), std::bad_function_call);
    state_e seen = CHANNEL_OK;
    channel.set_handler([&](state_e state, const std::string&, std::string&) { seen = state; });
    const EventRC rc = channel.do_work(EVENT_EXPIRE_TIMEOUT);
    EXPECT_EQ(seen, CHANNEL_TIMEOUT);
    EXPECT_EQ(rc.action, EventRC::ACTION_REARM);
    EXPECT_EQ(rc.timeout_ms, 70u);
}

TEST(Channel, APairTakesItsDescriptorsWithItAndNoProgramThatIsStartedInheritsThem) {
    auto pair = std::make_unique<SocketChannelPair>("pair");
    const int fds[] = {pair->first()->fd(), pair->second()->fd()};
    for (int fd : fds) {
        EXPECT_GT(fd, 2);
        EXPECT_TRUE(fcntl(fd, F_GETFD) & FD_CLOEXEC);
    }
    pair.reset();
    for (int fd : fds)
        EXPECT_EQ(fcntl(fd, F_GETFD), -1);
}

// tests/engines/closed_engine.cpp calls the other functions as a library does.
TEST(Shims, ALockIsRecursiveAndIgnoresNull) {
    pthread_mutex_t m;
    for (pthread_mutex_t* lock : {static_cast<pthread_mutex_t*>(nullptr), &m}) {
        corvo_lock_init(lock);
        corvo_lock_lock(lock);
        corvo_lock_lock(lock);
        corvo_lock_unlock(lock);
        corvo_lock_unlock(lock);
    }
    EXPECT_EQ(EPERM, pthread_mutex_unlock(&m)) << "every lock was given back";
    pthread_mutex_destroy(&m);
}

}  // namespace
}  // namespace test
