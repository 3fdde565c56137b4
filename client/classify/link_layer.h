#pragma once
// Converts frames of many link types, and Ethernet frames with more headers than the daemon knows, to
// Ethernet frames that it can read. The packet itself isn't touched.

#include <cstdint>
#include <string>

#include "client/classify/capture_source.h"

namespace brumectl {

/** Consists of `head`, then `rest`, then zeros. */
struct EthernetFrame {
    unsigned char head[18] = {};
    uint32_t head_size = 0;
    const unsigned char* rest = nullptr;  ///< within the raw frame
    uint32_t rest_size = 0;
    uint32_t zeros = 0;
    bool padded = false;  ///< some of the zeros replace bytes that the capture has cut off

    uint32_t size() const { return head_size + rest_size + zeros; }
};

namespace link_layer {

/** Whether frames of this link type (a DLT_ value of libpcap) can be read. */
bool is_known(int link);
/**
 * Returns 0, or a number for the reason why the frame has no usable IP packet. Removes VLAN tags except the
 * innermost of several, and the headers of PPPoE, MPLS and SNAP. An Ethernet frame keeps its length with
 * zeros at its end.
 */
uint32_t to_ethernet(int link, const RawFrame& raw, EthernetFrame& out);
/** A few words for such a number: "ARP", "EtherType 0x88cc". */
std::string reason_text(uint32_t reason);

}  // namespace link_layer
}  // namespace brumectl
