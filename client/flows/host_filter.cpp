#include "client/flows/host_filter.h"

#include <arpa/inet.h>
#include <strings.h>

#include <charconv>

#include "client/failure.h"
#include "client/text/complaints.h"
#include "client/text/json_access.h"

namespace brumectl::flows {

/** 0 if it is no address. */
int HostFilter::family_of(const std::string& text, Bytes& bytes) {
    const int family = text.find(':') != std::string::npos ? AF_INET6 : AF_INET;
    return inet_pton(family, text.c_str(), bytes.data()) == 1 ? family : 0;
}

HostFilter HostFilter::parse(const std::string& text) {
    HostFilter out;
    out.m_text = text;
    const size_t slash = text.find('/');
    out.m_family = family_of(text.substr(0, slash), out.m_bytes);
    if (out.m_family == 0 && (slash != std::string::npos || text.empty()))
        throw Usage("'--host' must be an address, a network such as 10.0.0.0/8 or a name, not '" + text +
                    "'");
    out.m_kind = out.m_family == 0 ? NAME : slash == std::string::npos ? ADDRESS : NETWORK;
    if (out.m_kind != NETWORK) return out;
    const unsigned most = out.m_family == AF_INET ? 32 : 128;
    const std::string bits = text.substr(slash + 1);
    const auto [end, err] = std::from_chars(bits.data(), bits.data() + bits.size(), out.m_bits);
    if (err != std::errc() || end != bits.data() + bits.size() || out.m_bits > most)
        throw Usage("the network's length of '--host' " + range_complaint(0, most, bits));
    return out;
}

bool HostFilter::is_inside(const std::string& address) const {
    Bytes bytes = {};
    if (family_of(address, bytes) != m_family) return false;
    for (unsigned bit = 0; bit < m_bits; ++bit) {
        const unsigned mask = 0x80U >> (bit % 8);
        if (((bytes[bit / 8] ^ m_bytes[bit / 8]) & mask) != 0) return false;
    }
    return true;
}

bool HostFilter::is_below(const std::string& name) const {
    if (name.size() < m_text.size()) return false;
    const size_t rest = name.size() - m_text.size();
    return strcasecmp(name.c_str() + rest, m_text.c_str()) == 0 && (rest == 0 || name[rest - 1] == '.');
}

bool HostFilter::matches(const Json::Value& flow) const {
    const auto any_of = [&](const char* one, const char* other,
                            bool (HostFilter::*fits)(const std::string&) const) {
        return (this->*fits)(string_of(member_of(flow, one))) ||
               (this->*fits)(string_of(member_of(flow, other)));
    };
    if (m_kind == NETWORK) return any_of("client", "server", &HostFilter::is_inside);
    if (m_kind == NAME) return any_of("sni", "host", &HostFilter::is_below);
    return true;  // the engine has filtered
}

}  // namespace brumectl::flows
