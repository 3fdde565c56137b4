#include "utils/uri_parser.h"

#include <gtest/gtest.h>

namespace corvo {
namespace {

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
            // Numbers that modulo 32 or 64 bits are port 80.
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

}  // namespace
}  // namespace corvo
