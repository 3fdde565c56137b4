#include "client/address.h"

#include <arpa/inet.h>

#include <charconv>
#include <cstdlib>

#include "client/failure.h"

namespace brumectl {

namespace {

constexpr const char* DEFAULTS[] = {"/run/brumecpd/brumecpd.sock", "127.0.0.1:4040"};

bool parse_port(const std::string& text, uint16_t& port) {
    unsigned value = 0;
    auto [end, err] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (err != std::errc() || end != text.data() + text.size() || value == 0 || value > 65535) return false;
    port = static_cast<uint16_t>(value);
    return true;
}

}  // namespace

Address Address::parse(const std::string& text) {
    if (text.empty()) throw Usage("the daemon's address is empty; give the path of its socket or IP:PORT");
    Address address;
    address.text = text;
    size_t colon = text.rfind(':');
    if (colon != std::string::npos &&
        inet_pton(AF_INET, text.substr(0, colon).c_str(), &address.in.sin_addr) == 1) {
        uint16_t port = 0;
        if (!parse_port(text.substr(colon + 1), port))
            throw Usage("'" + text + "' has no port from 1 to 65535 behind its colon");
        address.tcp = true;
        address.in.sin_family = AF_INET;
        address.in.sin_port = htons(port);
        return address;
    }
    if (text.size() >= sizeof(sockaddr_un::sun_path))
        throw Usage("'" + text + "' is longer than the path of a socket can be (107 bytes)");
    address.path = text;
    return address;
}

sockaddr_un Address::unix_address() const {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    return address;
}

std::vector<Address> default_addresses() {
    if (const char* named = std::getenv("BRUMECTL_SOCKET"); named != nullptr && *named != '\0')
        return {Address::parse(named)};
    std::vector<Address> found;
    for (const char* text : DEFAULTS)
        found.push_back(Address::parse(text));
    return found;
}

}  // namespace brumectl
