#pragma once
// A host at either end of a flow: an address, a network, or the name that the client asked for.

#include <json/value.h>

#include <array>
#include <cstdint>
#include <string>

namespace brumectl::flows {

class HostFilter {
 public:
    /** Every flow matches. */
    HostFilter() = default;
    /**
     * "10.0.0.1", "fd00::/8", or a name such as "example.org", which stands for names below it as well; case
     * doesn't matter. Throws Usage for a network whose length can't be, and for the empty text.
     */
    static HostFilter parse(const std::string& text);

    bool matches(const Json::Value& flow) const;
    /** Whether it is one address, which an engine can filter by itself. */
    bool is_address() const { return m_kind == ADDRESS; }
    const std::string& text() const { return m_text; }

 private:
    enum kind_e { ANY, ADDRESS, NETWORK, NAME };
    using Bytes = std::array<uint8_t, 16>;

    static int family_of(const std::string& text, Bytes& bytes);
    bool is_inside(const std::string& address) const;
    bool is_below(const std::string& name) const;

    kind_e m_kind = ANY;
    std::string m_text = {};
    int m_family = 0;
    Bytes m_bytes = {};
    unsigned m_bits = 0;  ///< of the network
};

}  // namespace brumectl::flows
