#pragma once
// Attributes: what nDPI has read out of a flow besides its protocol, each a name and a text. They are stored
// as one text of "name=value" lines.

#include <ndpi/ndpi_api.h>

#include <string>
#include <string_view>

namespace corvo::engine {

/** Replaces the contents of `out`. */
void read_attributes(const ndpi_flow_struct& dissection, std::string& out);

/** Calls `visit` with the name and the value of each attribute, in order. */
template <typename Visit>
void for_each_attribute(std::string_view attributes, Visit visit) {
    while (!attributes.empty()) {
        std::string_view line = attributes.substr(0, attributes.find('\n'));
        size_t sign = line.find('=');
        visit(line.substr(0, sign), line.substr(sign + 1));
        attributes.remove_prefix(line.size() + 1);
    }
}

/**
 * Appends a text from the wire in a form that any reader can take: control characters and invalid UTF-8
 * become question marks, and anything beyond 256 bytes is cut off.
 */
void append_clean(std::string_view text, std::string& out);

}  // namespace corvo::engine
