#include "utils/mem_utils.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <unistd.h>

#include "utils/trace_utils.h"

namespace corvo {
namespace {

TEST(MemUtils, ReadsNumbersFromTheLinesOfProc) {
    const std::pair<std::string, long> lines[] = {
        {"VmRSS:\t    1234 kB\n", 1234}, {"Name:\tbrumecpd\n", 0}, {"9\n", 0}, {"", 0}};
    for (auto [line, value] : lines)
        EXPECT_EQ(MemUtils::get_numeric_value(line.data()), value) << line;
    std::string line = "11 -22  33";
    EXPECT_EQ(MemUtils::get_word_with_index_from_line(line.data(), 2), -22);
    EXPECT_EQ(MemUtils::get_word_with_index_from_line(nullptr, 1), -1);
}

TEST(MemUtils, FiguresOfTheProcessAgreeWithEachOther) {
    long long resident = MemUtils::get_process_mem_value(MemUtils::RESIDENT_MEMORY);
    EXPECT_GE(resident, sysconf(_SC_PAGESIZE));
    EXPECT_GT(MemUtils::get_process_mem_value(MemUtils::VIRTUAL_MEMORY), resident);
    EXPECT_EQ(MemUtils::get_memory_value("NoSuchKey"), -1);
    std::unordered_map<std::string, std::string> status;
    MemUtils::get_process_status(status);
    EXPECT_EQ(status["Pid"], std::to_string(getpid()));
}

TEST(MemUtils, FindsAMappingByItsFirstAndItsLastByte) {
    const size_t page = sysconf(_SC_PAGESIZE);
    auto* block = static_cast<char*>(mmap(nullptr, 3 * page, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    // A hole on both sides keeps neighbours from being merged with it or found in its place.
    char* middle = block + page;
    ASSERT_EQ(munmap(block, page) + munmap(middle + page, page), 0);
    MemUtils::MemMap found{};
    for (char* byte : {middle, middle + page - 1}) {
        ASSERT_TRUE(MemUtils::lookup(byte, byte, found));
        EXPECT_EQ(std::tuple(found.start, found.end, found.size, found.inode),
                  std::tuple(middle, middle + page, page, 0));
    }
    munmap(middle, page);
    EXPECT_FALSE(MemUtils::lookup(middle, middle, found));
}

TEST(TraceUtils, SeesATracer) {
    auto sees_it = [] {
        const bool before = TraceUtils::i_am_traced();
        if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) return true;  // not allowed in this place
        return !before && TraceUtils::i_am_traced();
    };
    EXPECT_EXIT(_exit(sees_it() ? 0 : 1), testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace corvo
