#include "server/watchdog/corvo_backward.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <setjmp.h>
#include <signal.h>
#include <sys/mman.h>
#include <ucontext.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <vector>

#include "infra/corvo_version.h"
#include "server/watchdog/corvo_server_sig.h"
#include "server/watchdog/signal_trap.h"
#include "support/temp_dir.h"

/** Crashes. Like functions of many C libraries, it has no unwind tables and isn't exported. */
extern "C" void crash_without_tables();
#if defined(__arm__)
asm(R"(.text; .thumb; .syntax unified; .type crash_without_tables, %function; .globl crash_without_tables
.hidden crash_without_tables
.thumb_func
crash_without_tables: push {r4, lr}; movs r4, #0; str r4, [r4]; pop {r4, pc}
.size crash_without_tables, . - crash_without_tables)");
#else
asm(R"(.text; .type crash_without_tables, @function; .globl crash_without_tables
.hidden crash_without_tables
crash_without_tables: pushq %rbx; movl $0, 0; popq %rbx; ret
.size crash_without_tables, . - crash_without_tables)");
#endif

namespace test {

/** Calls itself until the stack is that deep. Not in an unnamed namespace: tests look for its name. */
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
using ::testing::MatchesRegex;
using ::testing::Not;
using ::testing::StartsWith;

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

sigjmp_buf g_before_crash;
BackwardSig* g_saved = nullptr;
int g_dump = -1;

void save_stack(int, siginfo_t*, void* ucontext) {
    {
        const InterruptedHere here(ucontext);
        const ucontext_t of_another{};
        {
            const InterruptedHere within(&of_another);  // a handler within the handler
        }
        const SignalTrap trap;
        g_saved->save_bt();
        SigHandler::dump_traceback(g_dump);
    }
    siglongjmp(g_before_crash, 1);
}

TEST(StackTrace, BeginsWhereASignalCameAndGoesOnByGuessesWhereTablesEnd) {
    const TempDir dir;
    BackwardSig sig;
    g_saved = &sig;
    struct sigaction action {
    }, before{};
    action.sa_sigaction = save_stack;
    action.sa_flags = SA_SIGINFO;
    sigaction(SIGSEGV, &action, &before);
    g_dump = open(dir.file("dump").c_str(), O_WRONLY | O_CREAT, 0600);
    if (sigsetjmp(g_before_crash, 1) == 0) at_depth(2, crash_without_tables);
    close(g_dump);
    sigaction(SIGSEGV, &before, nullptr);

    const std::string dump = read_file(dir.file("dump"));
    EXPECT_THAT(dump, MatchesRegex("[^\n]*test_watchdog\\(crash_without_tables\\+[^\n]*\n(.|\n)*"));
    EXPECT_THAT(dump, HasSubstr("\n? "));
    EXPECT_THAT(dump, HasSubstr("at_depth"));
    if (!corvo::Version::g_have_dw) return;
    const std::string trace = sig.restore_bt(Backward::STYLE_GDB);
    EXPECT_THAT(trace, StartsWith("crash_without_tables at "));
    EXPECT_THAT(trace, HasSubstr("\n? test::at_depth(int, "));
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

TEST(Resolver, FindsSourcesInTheUpperHalfOfThirtyTwoBitsToo) {
    if (!corvo::Version::g_have_dw) GTEST_SKIP() << "names need libdw";
    constexpr size_t PIECE = size_t{64} << 20;
    std::vector<void*> filler;
    do
        filler.push_back(mmap(nullptr, PIECE, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
    while (reinterpret_cast<uintptr_t>(filler.back()) < uintptr_t{1} << 31);
    void* library = dlopen(SCRIPTED_ENGINE, RTLD_NOW | RTLD_LOCAL);
    for (void* piece : filler)
        munmap(piece, PIECE);
    ASSERT_NE(library, nullptr) << dlerror();
    const void* function = dlsym(library, "corvo_api_cp_coffee");
    EXPECT_GE(reinterpret_cast<uintptr_t>(function), uintptr_t{1} << 31);
    Resolver resolver;
    EXPECT_EQ(resolver.addr2symbol(nullptr).function, "N/A");
    const Resolver::Symbol there = resolver.addr2symbol(function);
    EXPECT_EQ(there.function, "corvo_api_cp_coffee");
    EXPECT_THAT(there.file, EndsWith("scripted_engine.cpp"));
    EXPECT_GT(there.line, 0U);
    dlclose(library);
}

}  // namespace
}  // namespace test
