#include "utils/mem_utils.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "utils/trace_utils.h"

namespace corvo {
namespace {

TEST(MemUtils, ReadsNumbersFromStatusLines) {
    struct {
        const char* line;
        long value;
    } const cases[] = {
        {"VmRSS:\t    1234 kB\n", 1234}, {"VmHWM:\t7 kB\n", 7}, {"Name:\tbrumecpd\n", 0}, {"9\n", 0}, {"", 0},
    };
    for (const auto& c : cases) {
        std::string line = c.line;
        EXPECT_EQ(MemUtils::get_numeric_value(line.data()), c.value) << c.line;
    }
}

TEST(MemUtils, CountsWordsFromOne) {
    struct {
        int index;
        long long value;
    } const cases[] = {{0, 0}, {1, 11}, {2, -22}, {3, 33}, {4, 0}};
    for (const auto& c : cases) {
        std::string line = "11 -22  33";
        EXPECT_EQ(MemUtils::get_word_with_index_from_line(line.data(), c.index), c.value) << c.index;
    }
    EXPECT_EQ(MemUtils::get_word_with_index_from_line(nullptr, 1), -1);
}

TEST(MemUtils, MemoryFiguresAreInBytesAndAgreeWithEachOther) {
    long long resident = MemUtils::get_process_mem_value(MemUtils::RESIDENT_MEMORY);
    EXPECT_GE(resident, sysconf(_SC_PAGESIZE));
    EXPECT_GT(MemUtils::get_process_mem_value(MemUtils::VIRTUAL_MEMORY), resident);
    EXPECT_GT(MemUtils::get_memory_value("VmPeak"), 0);
    EXPECT_EQ(MemUtils::get_memory_value("NoSuchKey"), -1);
}

TEST(MemUtils, FindsAMappingByItsFirstAndItsLastByte) {
    const size_t size = 3 * sysconf(_SC_PAGESIZE);
    void* block = mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(block, MAP_FAILED);
    // A hole on both sides keeps neighbours from being merged with it or found in its place.
    char* middle = static_cast<char*>(block) + size / 3;
    munmap(block, size / 3);
    munmap(middle + size / 3, size / 3);

    for (char* byte : {middle, middle + size / 3 - 1}) {
        MemUtils::MemMap found{};
        ASSERT_TRUE(MemUtils::lookup(byte, byte, found));
        EXPECT_EQ(found.start, middle);
        EXPECT_EQ(found.end, middle + size / 3);
        EXPECT_EQ(found.size, size / 3);
        EXPECT_EQ(found.inode, 0);
    }
    munmap(middle, size / 3);

    MemUtils::MemMap none{};
    auto* top = reinterpret_cast<void*>(~uintptr_t{0});
    EXPECT_FALSE(MemUtils::lookup(top, top, none));
}

TEST(MemUtils, ReplacesOldMapsAndKnowsMappedFilesByTheirInode) {
    std::vector<MemUtils::MemMap> maps = {{nullptr, nullptr, 0, 0}};
    MemUtils::get_maps(maps);
    ASSERT_FALSE(maps.empty());
    EXPECT_NE(maps.front().end, nullptr);

    static const char of_the_program[] = "text";
    MemUtils::MemMap program{};
    ASSERT_TRUE(MemUtils::lookup(of_the_program, of_the_program, program));
    EXPECT_NE(program.inode, 0);
}

TEST(MemUtils, StatusValuesStandWithoutTheirLeadingBlanks) {
    std::unordered_map<std::string, std::string> status;
    MemUtils::get_process_status(status);
    EXPECT_EQ(status["Pid"], std::to_string(getpid()));
    EXPECT_EQ(status["Name"], std::string(program_invocation_short_name).substr(0, 15));
}

TEST(TraceUtils, SeesATracer) {
    pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        bool before = TraceUtils::i_am_traced();
        if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) _exit(77);  // not allowed in this place
        _exit(!before && TraceUtils::i_am_traced() ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    ASSERT_TRUE(WIFEXITED(status));
    if (WEXITSTATUS(status) == 77) GTEST_SKIP() << "ptrace isn't allowed here";
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

}  // namespace
}  // namespace corvo
