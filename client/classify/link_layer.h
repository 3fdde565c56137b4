#pragma once
// Frames of links that the daemon doesn't know, as the Ethernet frames that it does.

#include <cstddef>
#include <string>

namespace brumectl::link_layer {

/** Whether frames of this link (a DLT_ value of libpcap) can be converted; Ethernet itself can. */
bool is_known(int dlt);
/**
 * Puts an Ethernet frame with the same payload into `out`, its addresses zero where the link has none.
 * False: the frame is too short for its link's header, or carries what Ethernet has no number for.
 */
bool to_ethernet(int dlt, const unsigned char* bytes, size_t size, std::string& out);
/** How much longer than the original such a frame is, in bytes; may be negative. */
int growth(int dlt);

}  // namespace brumectl::link_layer
