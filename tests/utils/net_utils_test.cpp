#include "utils/net_utils.h"

#include <gtest/gtest.h>
#include <net/if.h>

#include "support/error_of.h"

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
    EXPECT_EQ(NetUtils::ip2str(0xffffffff), "255.255.255.255");
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

}  // namespace
}  // namespace corvo
