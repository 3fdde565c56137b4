#pragma once
// What nDPI has read out of a flow beyond its protocol: attributes, each a name and a text. They are kept as
// one text of lines "name=value".

#include <ndpi/ndpi_api.h>

#include <string>
#include <string_view>

namespace corvo::engine {

/** In the place of what `out` held. */
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
 * Appends a text from the wire so that any reader can take it: control characters and bytes that aren't UTF-8
 * become question marks, and what is beyond 256 bytes is cut off.
 */
void append_clean(std::string_view text, std::string& out);

}  // namespace corvo::engine
