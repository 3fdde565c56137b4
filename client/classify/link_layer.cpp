#include "client/classify/link_layer.h"

#include <pcap/dlt.h>

#include <algorithm>
#include <cstdint>
#include <iterator>

#include "utils/pcap/pcap_bytes.h"

namespace brumectl::link_layer {

namespace {

/** Where a link's frames keep the type of their payload. */
struct Link {
    int dlt;
    size_t header;  ///< bytes before the payload
    int type_at;    ///< of an EtherType in the header; -1: the payload is IP of the version that it says
};

constexpr Link LINKS[] = {
    {DLT_RAW, 0, -1},  {DLT_IPV4, 0, -1},       {DLT_IPV6, 0, -1},       {DLT_NULL, 4, -1},
    {DLT_LOOP, 4, -1}, {DLT_LINUX_SLL, 16, 14}, {DLT_LINUX_SLL2, 20, 0},
};

const Link* find(int dlt) {
    const Link* found =
        std::find_if(std::begin(LINKS), std::end(LINKS), [dlt](const Link& link) { return link.dlt == dlt; });
    return found == std::end(LINKS) ? nullptr : found;
}

/** 0 if it isn't IP. The family number before the packet differs between systems; the version doesn't. */
uint32_t type_by_version(unsigned char first) {
    if (first >> 4 == 4) return corvo::kEtherTypeIpv4;
    return first >> 4 == 6 ? corvo::kEtherTypeIpv6 : 0;
}

}  // namespace

bool is_known(int dlt) {
    return dlt == DLT_EN10MB || find(dlt);
}

int growth(int dlt) {
    const Link* link = find(dlt);
    return link ? static_cast<int>(corvo::kEtherHeader) - static_cast<int>(link->header) : 0;
}

bool to_ethernet(int dlt, const unsigned char* bytes, size_t size, std::string& out) {
    const auto* text = reinterpret_cast<const char*>(bytes);
    if (dlt == DLT_EN10MB) {
        out.assign(text, size);
        return true;
    }
    const Link* link = find(dlt);
    if (!link || size <= link->header) return false;
    const uint32_t type =
        link->type_at >= 0 ? corvo::load_be16(bytes + link->type_at) : type_by_version(bytes[link->header]);
    if (type == 0) return false;
    out.assign(corvo::kEtherTypeOffset, '\0');
    out += static_cast<char>(type >> 8);
    out += static_cast<char>(type);
    out.append(text + link->header, size - link->header);
    return true;
}

}  // namespace brumectl::link_layer
