#pragma once
// Frames of many links, and of Ethernet with more around the packet than the daemon knows, as Ethernet frames
// that it reads: the packet itself isn't touched.

#include <cstdint>
#include <string>

#include "client/classify/capture_source.h"

namespace brumectl {

/** `head`, then `rest`, then zeros. */
struct EthernetFrame {
    unsigned char head[18] = {};
    uint32_t head_size = 0;
    const unsigned char* rest = nullptr;  ///< within the raw frame
    uint32_t rest_size = 0;
    uint32_t zeros = 0;
    bool padded = false;  ///< some of the zeros stand for bytes that the capture has cut

    uint32_t size() const { return head_size + rest_size + zeros; }
};

namespace link_layer {

/** Whether frames of this link (a DLT_ value of libpcap) can be read. */
bool is_known(int link);
/**
 * 0, or a number for the reason why there is no IP packet to be had from the frame. Tags of VLANs go, but for
 * the innermost one of several, and so do the headers of PPPoE, MPLS and SNAP; an Ethernet frame keeps its
 * length by zeros at its end.
 */
uint32_t to_ethernet(int link, const RawFrame& raw, EthernetFrame& out);
/** A few words for such a number: "ARP", "EtherType 0x88cc". */
std::string reason_text(uint32_t reason);

}  // namespace link_layer
}  // namespace brumectl
