#pragma once
// What is added to a flow between two records of it: what an IPFIX collector is told.

#include <json/value.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <string>

namespace brumectl::flows {

/** `flowEndReason`, by its registered numbers. */
enum end_e : uint8_t { IDLE = 1, ACTIVE = 2, ENDED = 3, FORCED = 4 };

struct Traffic {
    uint64_t packets = 0;
    uint64_t bytes = 0;

    bool operator==(const Traffic&) const = default;
    Traffic operator-(const Traffic& other) const {
        return {packets - std::min(packets, other.packets), bytes - std::min(bytes, other.bytes)};
    }
};

struct FlowRecord {
    int family = 0;  ///< AF_INET or AF_INET6
    std::array<uint8_t, 16> client = {};
    std::array<uint8_t, 16> server = {};
    uint16_t client_port = 0;
    uint16_t server_port = 0;
    uint8_t protocol = 0;  ///< of IP
    end_e end = ENDED;
    Traffic to_server = {};
    Traffic to_client = {};
    uint64_t start_ms = 0;  ///< since 1970
    uint64_t end_ms = 0;
    uint32_t application = 0;  ///< the engine's class; 0: unclassified
    std::string name = {};     ///< such as "TLS.Google"
    std::string category = {};
    std::string http_host = {};
    std::string server_name = {};  ///< in TLS and QUIC

    /** With all traffic since its start. Nothing for a row whose ends aren't IP addresses. */
    static std::optional<FlowRecord> read(const Json::Value& flow);
};

}  // namespace brumectl::flows
