#pragma once
// What nDPI has read out of a flow beyond its protocol, as texts of the form name=value.

#include <ndpi/ndpi_api.h>

#include <string>
#include <string_view>
#include <vector>

namespace corvo::engine {

std::vector<std::string> attributes_of(const ndpi_flow_struct& dissection);

/**
 * Appends a text from the wire so that any reader can take it: control characters and bytes that aren't UTF-8
 * become question marks, and what is beyond 256 bytes is cut off.
 */
void append_clean(std::string_view text, std::string& out);

}  // namespace corvo::engine
