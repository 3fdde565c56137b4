#pragma once
// Splits a text made of protocol, "://", server, ":" and port.

#include <cstdint>
#include <string>

namespace corvo {

class URIParser {
 public:
    enum server_type_e : uint32_t { SERVER_IPV4 = 0, SERVER_IPV6 = 1, SERVER_NAME = 2 };

    /** Never throws. The first step that fails leaves `valid` false and everything parsed so far in place. */
    explicit URIParser(const std::string& uri);

    bool validate_protocol() const;
    /** Sets the server type. */
    bool validate_server();
    /** Accepts 1 to 65534. */
    bool validate_port() const;

    const std::string& protocol() const { return m_protocol; }
    const std::string& server() const { return m_server; }
    uint32_t port() const { return m_port; }
    server_type_e server_type() const { return m_server_type; }
    bool valid() const { return m_valid; }

 private:
    bool parse(const std::string& uri);
    bool parse_port(const std::string& text);

    std::string m_protocol;
    std::string m_server;
    uint32_t m_port = 0;
    server_type_e m_server_type = SERVER_IPV4;
    bool m_valid = false;
};

}  // namespace corvo
