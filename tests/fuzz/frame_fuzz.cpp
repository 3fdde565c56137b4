// One frame: located headers, all accessors, and the conversion to IPv6.

#include <cassert>

#include "fuzz/fuzz_input.h"
#include "utils/pcap/pcap_packet.h"

namespace {

/** Calls every accessor. */
void ask(const corvo::CCapPkt& pkt) {
    [[maybe_unused]] const volatile int sum =
        pkt.GetIpVer() + pkt.GetProtocol() + pkt.IsSYN() + pkt.IsFIN() + pkt.IsRST();
    const std::string from = pkt.GetSrcAddr();
    const std::string to = pkt.GetDstAddr();
    assert(from.empty() == to.empty());
}

void check_headers(const corvo::CCapPkt& pkt, bool parsed) {
    assert(parsed == (pkt.l4 != nullptr));
    if (!parsed) return;
    const unsigned char* end = pkt.GetPktBuffer() + pkt.GetPktLen();
    assert(pkt.GetPktBuffer() < pkt.l3 && pkt.l3 <= pkt.l4 && pkt.l4 <= end);
    assert(pkt.GetIpVer() == 4 || pkt.GetIpVer() == 6);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > corvo::CCapPkt::kMaxFrame) return 0;
    corvo::CCapPkt pkt(data, static_cast<unsigned>(size));
    ask(pkt);
    check_headers(pkt, pkt.parse());
    ask(pkt);
    corvo::CFiaCounters counters;
    pkt.IsValidIpv4Packet(&counters);
    ask(pkt);
    pkt.IsValidIpv6Packet(&counters);  // ignores the version, so both may hold
    ask(pkt);

    const std::unique_ptr<corvo::CCapPkt> copy = pkt.clone();
    assert(copy->GetPktLen() == size);
    const int version = copy->GetIpVer();
    const bool valid = copy->parse();
    copy->convertPktToIpv6InPlace();
    const bool valid_after = copy->parse();
    check_headers(*copy, valid_after);
    ask(*copy);
    // A frame that is too long isn't converted and stays as it was.
    if (valid && version == 4) assert(valid_after);
    return 0;
}
