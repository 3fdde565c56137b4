#include "utils/net_utils.h"

#include <gtest/gtest.h>
#include <net/if.h>

#include "utils/cpu_utils.h"
#include "utils/exception.h"

namespace corvo {
namespace {

TEST(NetUtils, FindsTheInterfaceOfALocalAddressOnly) {
    EXPECT_EQ(NetUtils::get_src_ip("127.0.0.1", 80), "127.0.0.1");
    EXPECT_EQ(NetUtils::get_src_ip("no address", 80), "");
    EXPECT_EQ(NetUtils::ip_to_ifname("127.0.0.1"), "lo");
    EXPECT_EQ(NetUtils::ip_to_ifname("127.0.0.99"), "");
    EXPECT_EQ(NetUtils::ip_to_ifname(""), "");
}

TEST(NetUtils, TellsAddressesFromOtherTexts) {
    struct {
        std::string text;
        bool v4;
        bool v6;
    } const cases[] = {
        {"10.0.0.1", true, false},
        {"10.0.1", false, false},
        {"10.0.0.256", false, false},
        {"", false, false},
        {"::1", false, true},
        {"::ffff:10.0.0.1", false, true},
        {"fe80::1%lo", false, false},
        {std::string("10.0.0.1\0tail", 13), false, false},
        {std::string("::1\0", 4), false, false},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(NetUtils::is_valid_ipv4(c.text), c.v4) << c.text;
        EXPECT_EQ(NetUtils::is_valid_ipv6(c.text), c.v6) << c.text;
    }
}

TEST(NetUtils, ConvertsAddressesInHostOrder) {
    EXPECT_EQ(NetUtils::ip2str(2130706433), "127.0.0.1");
    EXPECT_EQ(NetUtils::ip2str(0xffffffff), "255.255.255.255");
    EXPECT_EQ(NetUtils::str2ip("127.0.0.1"), 2130706433u);
    EXPECT_EQ(NetUtils::str2ip("localhost"), 0u);
    EXPECT_EQ(NetUtils::str2ip6("::1"), std::string(15, '\0') + '\1');
    EXPECT_EQ(NetUtils::str2ip6("127.0.0.1"), "");
}

TEST(NetUtils, ReadsEachCounterOfAnInterface) {
    for (auto counter : {NetUtils::get_if_rx_bytes, NetUtils::get_if_tx_bytes, NetUtils::get_if_rx_overruns,
                         NetUtils::get_if_rx_errors, NetUtils::get_if_tx_errors, NetUtils::get_if_rx_packets,
                         NetUtils::get_if_tx_packets})
        EXPECT_NO_THROW(counter("lo"));
    EXPECT_EQ(NetUtils::get_if_stat("lo", "rx_bytes").back(), '\n');
}

TEST(NetUtils, NamesTheMissingInterface) {
    EXPECT_EQ(NetUtils::get_if_index("lo"), if_nametoindex("lo"));
    try {
        NetUtils::get_if_rx_bytes("no%s0");
        FAIL() << "the counter of an unknown interface was read";
    } catch (const Exception& e) {
        EXPECT_STREQ(e.what(),
                     "Failed to access interface stats file /sys/class/net/no%s0/statistics/rx_bytes");
    }
    try {
        NetUtils::get_if_index("no0");
        FAIL() << "an unknown interface has an index";
    } catch (const Exception& e) {
        EXPECT_STREQ(e.what(), "interface no0 doesn't exist!");
    }
}

TEST(CpuUtils, ArchitectureEndsInTheWordSizeThatClientsExpect) {
    EXPECT_TRUE(CpuUtils::Arch().ends_with(" @ 32 bit"));
    EXPECT_GE(CpuUtils::GetCpuFreq(), 0);
}

}  // namespace
}  // namespace corvo
