#pragma once
// The protocol layers of a packet as texts, outermost first, such as "eth", "vlan", "ipv4", "tcp", "tls".

#include <string>
#include <vector>

#include "flow.h"
#include "frame.h"

namespace corvo::engine {

/** Appends the layers found in the frame, then those of the verdict if there is one. */
void append_layers(const Frame& frame, const Verdict& verdict, std::vector<std::string>& out);

/** Lower-case name of an IP protocol; "ip-proto-" and its number if we have no name for it. */
std::string ip_protocol_name(uint8_t protocol);

}  // namespace corvo::engine
