#include "infra/corvo_shims.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <ctime>
#include <sstream>
#include <string>

#include "infra/corvo_lock.h"
#include "infra/corvo_malloc.h"
#include "infra/corvo_mt.h"
#include "utils/unique_fd.h"

namespace {

TEST(Shims, EveryNameThatALibraryMayBindToIsExported) {
    std::istringstream names(R"(
        cv_timerfd_create cv_timerfd_settime cv_nanosleep cv_socket cv_bind cv_listen cv_connect cv_send cv_recv
        cv_socketpair cv_close cv_epoll_create1 cv_epoll_ctl cv_epoll_wait cv_poll cv_set_sock_send_qsize
        cv_get_sock_send_qsize cvmalloc cvcalloc cvrealloc cvfree cvmalloc_trim cvcalloc_large cvfree_large
        cvmalloc_stats corvo_lock_init corvo_lock_lock corvo_lock_unlock corvo_mt_supported corvo_mt_get
        corvo_mt_register_client corvo_mt_set_active_client corvo_mt_get_active_client corvo_mt_pause
        corvo_mt_resume corvo_mt_ext_on_malloc corvo_mt_ext_on_free corvo_mt_ext_align_size
        corvo_mt_ext_track corvo_mt_ext_untrack)");
    for (std::string name; names >> name;)
        EXPECT_NE(nullptr, dlsym(RTLD_DEFAULT, name.c_str())) << name;
}

TEST(Shims, ASendBufferThatTheKernelCutsIsAnError) {
    const corvo::UniqueFd fd(cv_socket(AF_UNIX, SOCK_DGRAM, 0));
    EXPECT_EQ(0, cv_set_sock_send_qsize(fd.get(), 16384));
    unsigned int size = 0;
    EXPECT_EQ(0, cv_get_sock_send_qsize(fd.get(), size));
    EXPECT_EQ(32768u, size) << "the kernel reports twice the size that was asked for";

    errno = 0;
    EXPECT_EQ(-1, cv_set_sock_send_qsize(fd.get(), INT_MAX));
    EXPECT_EQ(EFBIG, errno);
    EXPECT_EQ(-1, cv_set_sock_send_qsize(-1, 1));
    EXPECT_EQ(EBADF, errno);
}

TEST(Shims, TimesAreOfTheRecordsThatClosedLibrariesHave) {
    struct Time {
        long sec;
        long nsec;
    };
    struct Timer {
        Time interval;
        Time value;
    } hour{{0, 0}, {3600, 0}}, soon{{0, 0}, {0, 1}}, before{};
    const Time moment{0, 1};
    const auto timer = [](Timer& record) { return reinterpret_cast<itimerspec*>(&record); };
    const corvo::UniqueFd fd(cv_timerfd_create(CLOCK_MONOTONIC, 0));
    EXPECT_EQ(0, cv_timerfd_settime(fd.get(), 0, timer(hour), nullptr));
    EXPECT_EQ(0, cv_timerfd_settime(fd.get(), 0, timer(soon), timer(before)));
    EXPECT_NEAR(3600, before.value.sec, 60);
    pollfd expired{fd.get(), POLLIN, 0};
    EXPECT_EQ(1, cv_poll(&expired, 1, 10000));
    EXPECT_EQ(0, cv_nanosleep(reinterpret_cast<const timespec*>(&moment), nullptr));
}

TEST(Shims, ALockIsRecursiveAndIgnoresNull) {
    corvo_lock_init(nullptr);
    corvo_lock_lock(nullptr);
    corvo_lock_unlock(nullptr);
    pthread_mutex_t m;
    corvo_lock_init(&m);
    corvo_lock_lock(&m);
    ASSERT_EQ(0, pthread_mutex_trylock(&m));
    for (int i = 0; i < 2; ++i)
        corvo_lock_unlock(&m);
    EXPECT_EQ(EPERM, pthread_mutex_unlock(&m)) << "every lock was given back";
    pthread_mutex_destroy(&m);
}

TEST(Shims, TheAbsentTracerClearsTheWholeRecord) {
    corvo_mt_client_ client;
    std::memset(&client, 0xff, sizeof client);
    EXPECT_FALSE(corvo_mt_supported());
    EXPECT_EQ(-95, corvo_mt_get(1, &client));
    for (const unsigned char byte : client.opaque)
        EXPECT_EQ(0, byte);
    EXPECT_EQ(17u, corvo_mt_ext_align_size(17));
}

}  // namespace
