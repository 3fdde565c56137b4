#include "utils/unique_fd.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace corvo {
namespace {

// In a child of its own, since the standard descriptors of a test belong to its runner.
TEST(LiftFd, NeverLeavesADescriptorAmongTheStandardOnes) {
    auto lifts = [] {
        close(0);
        close(1);
        int low = open("/dev/null", O_RDONLY | O_CLOEXEC);
        int high = lift_fd(low);
        return low == 0 && high > 2 && (fcntl(high, F_GETFD) & FD_CLOEXEC) != 0 && fcntl(0, F_GETFD) == -1;
    };
    EXPECT_EXIT(_exit(lifts() ? 0 : 1), testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace corvo
