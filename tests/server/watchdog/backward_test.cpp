#include "server/watchdog/corvo_backward.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "infra/corvo_version.h"
#include "server/watchdog/signal_trap.h"

namespace test {

/** Calls itself until the stack is that deep. Not in an unnamed namespace: its name is looked for. */
[[gnu::noinline]] void at_depth(int depth, const std::function<void()>& work) {
    if (depth == 0)
        work();
    else
        at_depth(depth - 1, work);
    asm volatile("");  // no tail call
}

namespace {

using namespace corvo::server;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;

TEST(StackTrace, ASavedTraceHoldsTheInnermostTwentyFrames) {
    if (!corvo::Version::g_have_dw) GTEST_SKIP() << "names need libdw";
    BackwardSig sig;
    at_depth(50, [&] {
        const SignalTrap trap;
        sig.save_bt();
    });
    const std::string text = sig.restore_bt(Backward::STYLE_GDB);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 20);
    const std::string first_line = text.substr(0, text.find('\n'));
    EXPECT_THAT(first_line, HasSubstr(".cpp:"));
    EXPECT_THAT(first_line, Not(HasSubstr("load_here")));
    EXPECT_THAT(text.substr(text.rfind('\n', text.size() - 2)), HasSubstr("at_depth"));
    EXPECT_EQ(sig.restore_bt(Backward::style_e(2)), "");
}

TEST(StackTrace, NoMoreThanTheStorageHoldsIsKept) {
    FixedTrace trace;
    testing::internal::CaptureStderr();
    at_depth(2000, [&] {
        const SignalTrap trap;
        trace.load_here(1500);
    });
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(trace.size(), FixedTrace::CAPACITY);
    EXPECT_EQ(err.find("voidp vector requested to be enlarged, can't do during signal, forbidden"), 0u);
    EXPECT_THAT(err, HasSubstr("voidp vector operator [] requested to access forbidden element"));
}

TEST(Resolver, FindsTheSourceOfAnAddress) {
    if (!corvo::Version::g_have_dw) GTEST_SKIP() << "names need libdw";
    Resolver resolver;
    const Resolver::Symbol here = resolver.addr2symbol(reinterpret_cast<const void*>(&at_depth));
    EXPECT_THAT(here.function, HasSubstr("at_depth"));
    EXPECT_THAT(here.file, EndsWith("backward_test.cpp"));
    EXPECT_GT(here.line, 0u);
    EXPECT_EQ(resolver.addr2symbol(nullptr).function, "N/A");
}

}  // namespace
}  // namespace test
