#pragma once
// A notification as subscribers receive it, and what a subscriber asks for.

#include <json/value.h>

#include <atomic>
#include <cstdint>
#include <string>

#include "infra/corvo_notif.h"

namespace corvo::notif {

/** The JSON text for a severity. */
const char* severity_to_str(Severity severity);

/** One occurrence. */
class Event {
 public:
    /** Assigns the next id and the current time. */
    Event(const std::string& feature, const std::string& name, Severity severity, const std::string& desc);
    Event(const Event&) = default;
    Event& operator=(const Event&) = default;
    virtual ~Event();

    void to_json(Json::Value& out) const;

    static std::atomic<uint64_t> g_id;  ///< id of the last event; 0 if there was none

    uint64_t id;
    std::string feature;
    std::string name;
    Severity severity;
    std::string desc;
    int64_t ts;  ///< seconds since the Epoch
};

struct EventID {
    std::string feature;
    std::string name;
    bool operator==(const EventID&) const = default;
};

struct Filter {
    std::string feature = "*";    ///< "*" for any
    std::string name = "*";       ///< "*" for any
    Severity severity = SEV_ANY;  ///< the lowest that passes

    bool matches(const Event& event) const;
};

}  // namespace corvo::notif
