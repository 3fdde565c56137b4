#include <fcntl.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <unistd.h>

#include "support/error_of.h"
#include "utils/base64.h"
#include "utils/mem_utils.h"
#include "utils/net_utils.h"
#include "utils/trace_utils.h"
#include "utils/unique_fd.h"
#include "utils/uri_parser.h"

namespace corvo {
namespace {

TEST(Base64, TextsAndBytesCorrespondUpToTheFirstForeignCharacter) {
    const std::pair<std::string, std::string> cases[] = {
        {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"\xFB\xFF\xBF", "+/+/"}};
    for (const auto& [bytes, text] : cases) {
        EXPECT_EQ(b64_encode(bytes), text);
        for (const std::string& more :
             {std::string(), std::string("\nZm9v"), std::string("\0Zm9v", 5), std::string("\xE9")})
            EXPECT_EQ(b64_decode(text + more), bytes) << text << more;
    }
    for (const auto& [text, bytes] : {std::pair{"Zm8=Zm9v", "fo"}, {"Zm9vZ", "foo"}, {"=", ""}})
        EXPECT_EQ(b64_decode(text), bytes) << text;
}

// In a child, since the standard descriptors of a test belong to its runner.
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

TEST(URIParser, KeepsWhatWasFoundBeforeTheFirstFault) {
    constexpr auto NAME = URIParser::SERVER_NAME;
    constexpr auto IPV4 = URIParser::SERVER_IPV4;
    const std::tuple<const char*, bool, std::string, std::string, uint32_t, URIParser::server_type_e>
        cases[] = {
            {"http://host-1.example:8080", true, "http", "host-1.example", 8080, NAME},
            {"tcp://10.0.0.1:65534", true, "tcp", "10.0.0.1", 65534, IPV4},
            {"tcp://:1", true, "tcp", "", 1, NAME},
            {"no protocol:80", false, "", "", 0, IPV4},
            {"tcp://host", false, "tcp", "", 0, IPV4},
            {"://host:80", false, "", "host", 80, IPV4},
            {"tcp://host_1:80", false, "tcp", "host_1", 80, IPV4},
            {"tcp://host:80x", false, "tcp", "host", 80, IPV4},
            {"tcp://host:", false, "tcp", "host", 0, IPV4},
            {"tcp://host:0", false, "tcp", "host", 0, NAME},
            {"tcp://host:65535", false, "tcp", "host", 65535, NAME},
            // Cut to 32 or 64 bits, these are port 80.
            {"tcp://host:4294967376", false, "tcp", "host", 0, IPV4},
            {"tcp://host:-18446744073709551536", false, "tcp", "host", 0, IPV4},
            {"tcp://host:18446744073709551696", false, "tcp", "host", 0, IPV4},
        };
    for (const auto& expected : cases) {
        const char* text = std::get<0>(expected);
        const URIParser uri(text);
        EXPECT_EQ(std::tuple(text, uri.valid(), uri.protocol(), uri.server(), uri.port(), uri.server_type()),
                  expected);
    }
}

TEST(NetUtils, FindsTheInterfaceOfALocalAddressOnly) {
    EXPECT_EQ(NetUtils::get_src_ip("127.0.0.1", 80), "127.0.0.1");
    EXPECT_EQ(NetUtils::get_src_ip("no address", 80), "");
    EXPECT_EQ(NetUtils::ip_to_ifname("127.0.0.1"), "lo");
    EXPECT_EQ(NetUtils::ip_to_ifname("127.0.0.99"), "");
}

TEST(NetUtils, TellsAddressesFromOtherTexts) {
    for (const char* v4 : {"10.0.0.1", "255.255.255.255"})
        EXPECT_TRUE(NetUtils::is_valid_ipv4(v4) && !NetUtils::is_valid_ipv6(v4)) << v4;
    for (const char* v6 : {"::1", "::ffff:10.0.0.1"})
        EXPECT_TRUE(NetUtils::is_valid_ipv6(v6) && !NetUtils::is_valid_ipv4(v6)) << v6;
    for (const std::string& none :
         {std::string("10.0.1"), std::string("10.0.0.256"), std::string("fe80::1%lo"), std::string(),
          std::string("10.0.0.1\0tail", 13), std::string("::1\0", 4)})
        EXPECT_FALSE(NetUtils::is_valid_ipv4(none) || NetUtils::is_valid_ipv6(none)) << none;
}

TEST(NetUtils, ConvertsAddressesInHostOrder) {
    EXPECT_EQ(NetUtils::ip2str(2130706433), "127.0.0.1");
    EXPECT_EQ(NetUtils::str2ip("127.0.0.1"), 2130706433u);
    EXPECT_EQ(NetUtils::str2ip("localhost"), 0u);
    EXPECT_EQ(NetUtils::str2ip6("::1"), std::string(15, '\0') + '\1');
    EXPECT_EQ(NetUtils::str2ip6("127.0.0.1"), "");
}

TEST(NetUtils, ReadsEachCounterOfAnInterfaceAndNamesTheMissingOne) {
    for (auto counter : {NetUtils::get_if_rx_bytes, NetUtils::get_if_tx_bytes, NetUtils::get_if_rx_overruns,
                         NetUtils::get_if_rx_errors, NetUtils::get_if_tx_errors, NetUtils::get_if_rx_packets,
                         NetUtils::get_if_tx_packets})
        EXPECT_NO_THROW(counter("lo"));
    EXPECT_EQ(NetUtils::get_if_stat("lo", "rx_bytes").back(), '\n');
    EXPECT_EQ(NetUtils::get_if_index("lo"), if_nametoindex("lo"));
    EXPECT_EQ(test::error_of([] { NetUtils::get_if_rx_bytes("no%s0"); }),
              "Failed to access interface stats file /sys/class/net/no%s0/statistics/rx_bytes");
    EXPECT_EQ(test::error_of([] { NetUtils::get_if_index("no0"); }), "interface no0 doesn't exist!");
}

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
    // Holes on both sides, so that no neighbour is merged with it or found in its place.
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
