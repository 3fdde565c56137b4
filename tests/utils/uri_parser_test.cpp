#include "utils/uri_parser.h"

#include <gtest/gtest.h>

namespace corvo {
namespace {

TEST(URIParser, KeepsWhatWasFoundBeforeTheFirstFault) {
    struct {
        const char* uri;
        bool valid;
        const char* protocol;
        const char* server;
        uint32_t port;
        URIParser::server_type_e type;
    } const cases[] = {
        {"http://host-1.example:8080", true, "http", "host-1.example", 8080, URIParser::SERVER_NAME},
        {"tcp://10.0.0.1:65534", true, "tcp", "10.0.0.1", 65534, URIParser::SERVER_IPV4},
        {"tcp://:1", true, "tcp", "", 1, URIParser::SERVER_NAME},
        {"no protocol:80", false, "", "", 0, URIParser::SERVER_IPV4},
        {"tcp://host", false, "tcp", "", 0, URIParser::SERVER_IPV4},
        {"://host:80", false, "", "host", 80, URIParser::SERVER_IPV4},
        {"tcp://host_1:80", false, "tcp", "host_1", 80, URIParser::SERVER_IPV4},
        {"tcp://host:80x", false, "tcp", "host", 80, URIParser::SERVER_IPV4},
        {"tcp://host:", false, "tcp", "host", 0, URIParser::SERVER_IPV4},
        {"tcp://host:0", false, "tcp", "host", 0, URIParser::SERVER_NAME},
        {"tcp://host:65535", false, "tcp", "host", 65535, URIParser::SERVER_NAME},
        // Numbers that modulo 32 or 64 bits are port 80.
        {"tcp://host:4294967376", false, "tcp", "host", 0, URIParser::SERVER_IPV4},
        {"tcp://host:-18446744073709551536", false, "tcp", "host", 0, URIParser::SERVER_IPV4},
        {"tcp://host:18446744073709551696", false, "tcp", "host", 0, URIParser::SERVER_IPV4},
    };
    for (const auto& c : cases) {
        URIParser uri(c.uri);
        EXPECT_EQ(uri.valid(), c.valid) << c.uri;
        EXPECT_EQ(uri.protocol(), c.protocol) << c.uri;
        EXPECT_EQ(uri.server(), c.server) << c.uri;
        EXPECT_EQ(uri.port(), c.port) << c.uri;
        EXPECT_EQ(uri.server_type(), c.type) << c.uri;
    }
}

}  // namespace
}  // namespace corvo
