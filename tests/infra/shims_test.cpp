#include "infra/corvo_shims.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <cerrno>
#include <climits>

#include "infra/corvo_lock.h"
#include "utils/unique_fd.h"

namespace {

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

}  // namespace
