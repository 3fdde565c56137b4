#pragma once
// Which flows are wanted, and in which order. The engine does what it can of that, this does the rest.

#include <json/value.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "client/flows/host_filter.h"

namespace brumectl::flows {

/** What a flow is sorted by: the number first, ascending, then the text. */
struct SortKey {
    double number = 0;
    std::string text = {};

    bool operator<(const SortKey& other) const {
        return number != other.number ? number < other.number : text < other.text;
    }
};

struct Order {
    const char* name;
    const char* engines;  ///< the engine's name for it; null if the engine doesn't have it
    SortKey (*key)(const Json::Value& flow);
};
/** The first is the default. */
std::span<const Order> orders();

struct FlowQuery {
    const Order* order = &orders().front();
    bool reverse = false;
    bool guess = true;  ///< if false, guessed flows count as unclassified
    std::string protocol = {};
    HostFilter host = {};
    std::optional<uint16_t> port = {};
    std::optional<uint32_t> ns_id = {};
    uint64_t min_bytes = 0;
    uint64_t max_bytes = UINT64_MAX;
    std::optional<double> min_age_sec = {};  ///< a flow without a known age isn't wanted if an age is
    std::optional<double> max_age_sec = {};

    /** Whether the engine lists the flows in the wanted order. */
    bool is_sorted_by_engine() const { return order->engines != nullptr && !reverse; }
    /** The parameters of `flows.list`. */
    Json::Value params() const;
    /** Whether a flow that the engine has listed is wanted. `now_sec` is in seconds since 1970. */
    bool matches(const Json::Value& flow, double now_sec) const;
};

}  // namespace brumectl::flows
