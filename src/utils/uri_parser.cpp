#include "utils/uri_parser.h"

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <string_view>

#include "utils/net_utils.h"

namespace corvo {
namespace {

constexpr std::string_view PROTOCOL_END = "://";
constexpr uint32_t MAX_PORT = 65534;

bool is_name_char(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '.';
}

}  // namespace

URIParser::URIParser(const std::string& uri) {
    m_valid = parse(uri) && validate_protocol() && validate_server() && validate_port();
}

bool URIParser::parse(const std::string& uri) {
    size_t protocol_end = uri.find(PROTOCOL_END);
    if (protocol_end == std::string::npos) return false;
    m_protocol = uri.substr(0, protocol_end);

    size_t server_start = protocol_end + PROTOCOL_END.size();
    size_t server_end = uri.find(':', server_start);
    if (server_end == std::string::npos) return false;
    m_server = uri.substr(server_start, server_end - server_start);
    return parse_port(uri.substr(server_end + 1));
}

bool URIParser::parse_port(const std::string& text) {
    // The conversion wraps negative numbers around, which could yield a valid port.
    if (text.find('-') != std::string::npos) return false;
    try {
        size_t used = 0;
        unsigned long value = std::stoul(text, &used);
        if (value > std::numeric_limits<uint32_t>::max()) return false;
        m_port = static_cast<uint32_t>(value);
        return used == text.size();
    } catch (const std::logic_error&) {  // not a number, or out of range
        return false;
    }
}

bool URIParser::validate_protocol() const {
    return !m_protocol.empty();
}

bool URIParser::validate_server() {
    if (NetUtils::is_valid_ipv4(m_server)) {
        m_server_type = SERVER_IPV4;
        return true;
    }
    if (NetUtils::is_valid_ipv6(m_server)) {
        m_server_type = SERVER_IPV6;
        return true;
    }
    if (!std::all_of(m_server.begin(), m_server.end(), is_name_char)) return false;
    m_server_type = SERVER_NAME;
    return true;
}

bool URIParser::validate_port() const {
    return m_port >= 1 && m_port <= MAX_PORT;
}

}  // namespace corvo
