#pragma once
// One flow: its two ends, what nDPI has found so far, and the state nDPI needs to continue.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <ndpi/ndpi_api.h>

#include "frame.h"

namespace corvo::engine {

/** The name for traffic that nDPI can't name. */
inline constexpr const char* UNCLASSIFIED = "unclassified";

/** The name space and both ends, ordered so that both directions of a conversation have the same key. */
struct FlowKey {
    /** lower end's address (2), upper end's (2), ports and name space, protocol, version and VLAN */
    uint64_t words[6] = {};

    bool operator==(const FlowKey&) const = default;
    uint32_t ns_id() const { return static_cast<uint32_t>(words[4]); }
    uint16_t lower_port() const { return static_cast<uint16_t>(words[4] >> 48); }
    uint16_t upper_port() const { return static_cast<uint16_t>(words[4] >> 32); }
    uint8_t protocol() const { return static_cast<uint8_t>(words[5]); }
    uint8_t version() const { return static_cast<uint8_t>(words[5] >> 8); }
    /** 0 without a VLAN, or where VLANs aren't distinguished. */
    uint16_t vlan() const { return static_cast<uint16_t>(words[5] >> 16); }
    /** The address as in the packet: 4 or 16 bytes, network order. */
    const void* lower_address() const { return &words[0]; }
    const void* upper_address() const { return &words[2]; }
};

/** The same in each process; what must not be predictable uses KeyedHash. */
inline uint32_t plain_hash(const FlowKey& key) {
    constexpr uint64_t FACTORS[] = {0x9e3779b97f4a7c15, 0xc2b2ae3d27d4eb4f, 0x165667b19e3779f9,
                                    0xd6e8feb86659fd93, 0xff51afd7ed558ccd, 0xa0761d6478bd642f};
    uint64_t sum = 0;
#pragma GCC unroll 6
    for (int i = 0; i < 6; i++)
        sum += key.words[i] * FACTORS[i];
    return static_cast<uint32_t>((sum ^ sum >> 29) * 0xbf58476d1ce4e5b9 >> 32);
}

struct DirectedKey {
    FlowKey key;
    bool from_upper = false;  ///< the packet was sent by the key's upper end
};

/** The key of a decoded frame whose `error` is PKT_OK. */
DirectedKey key_of(const Frame& frame, uint32_t ns_id, uint16_t vlan);

/** Counts since the data path started. */
struct Traffic {
    uint64_t packets = 0;
    uint64_t bytes = 0;  ///< whole frames
    uint64_t flows = 0;

    Traffic& operator+=(const Traffic& other) {
        packets += other.packets;
        bytes += other.bytes;
        flows += other.flows;
        return *this;
    }
    Traffic& operator-=(const Traffic& other) {
        packets -= other.packets;
        bytes -= other.bytes;
        flows -= other.flows;
        return *this;
    }
};

/** Traffic of the flows of one class. A flow is open until its verdict is final or it ends. */
struct Counts {
    Traffic settled;  ///< never decreases
    Traffic open;
};

/** What belongs to one pair of master and application protocol; owned by the classifier. */
struct ProtocolEntry {
    std::string full;                 ///< nDPI's name for the pair, such as "TLS.Google"
    std::vector<std::string> layers;  ///< lower case, outermost first, such as "tls", "google"
    Traffic traffic;                  ///< of flows that have this verdict now, or ended with it
    Traffic open;                     ///< the part whose verdict isn't final yet
    Traffic guessed;                  ///< the part whose verdict is a guess
    uint32_t cls = 0;
    uint16_t category = 0;  ///< the usual one; a flow may have a different one
};

/** What is known about a flow's protocol; all 0 while nothing is known. */
struct Verdict {
    ProtocolEntry* entry = nullptr;
    uint16_t master = 0;
    uint16_t app = 0;
    uint16_t category = 0;
    uint8_t confidence = 0;  ///< ndpi_confidence_t
    bool guessed = false;    ///< based on port or address only

    uint32_t cls() const { return app ? app : master; }
};

struct NdpiFlowDeleter {
    void operator()(ndpi_flow_struct* flow) const { ndpi_free_flow(flow); }
};

/** What outlives a flow's dissection; allocated only if there is something to keep. */
struct FlowDetails {
    ndpi_risk risks = 0;
    std::string attributes;  ///< see attributes.h
};

/** A flow's packets and bytes (whole frames) by sender: lower end, upper end. */
struct FlowTraffic {
    uint64_t packets[2] = {};
    uint64_t bytes[2] = {};
};

/** What records have told of a flow that goes on. */
struct FlowRecorded {
    FlowTraffic traffic;
    uint64_t first_number = 0;  ///< that of the flow's first record
    uint64_t time_ms = 0;       ///< when the last one was made
    uint64_t until_ms = 0;      ///< when the last packet in it was seen
};

struct Flow {
    FlowKey key;
    std::unique_ptr<ndpi_flow_struct, NdpiFlowDeleter> dissection;  ///< only until the verdict
    std::unique_ptr<FlowDetails> details;                           ///< may be set with the verdict
    std::unique_ptr<FlowRecorded> recorded;                         ///< from its first record on
    uint64_t first_seen_ms = 0;
    uint64_t last_seen_ms = 0;
    uint64_t bytes[2] = {};    ///< by sender: lower end, upper end
    uint64_t packets[2] = {};  ///< likewise
    Verdict verdict;
    uint32_t hash = 0;
    uint32_t next_free = 0;        ///< for the table, while unused
    bool used = false;             ///< for the table
    bool decided = false;          ///< the verdict is final
    bool client_is_upper = false;  ///< the upper end sent the first packet
    bool reset_seen = false;
    bool fin_seen[2] = {};  ///< by sender

    uint64_t all_packets() const { return packets[0] + packets[1]; }
    uint64_t all_bytes() const { return bytes[0] + bytes[1]; }
    FlowTraffic counted() const { return {{packets[0], packets[1]}, {bytes[0], bytes[1]}}; }
    Traffic traffic() const { return {all_packets(), all_bytes(), 1}; }

    /** Both ends have closed the connection, or one has reset it. */
    bool is_closed() const { return reset_seen || (fin_seen[0] && fin_seen[1]); }

    /** How long the flow may be idle before it is forgotten. */
    uint16_t aging_sec() const {
        switch (key.protocol()) {
            case PROTO_TCP:
                return is_closed() ? 10 : 300;
            case PROTO_UDP:
                return 60;
            default:
                return 30;
        }
    }
};

}  // namespace corvo::engine
