#pragma once
// One event of the daemon's notification hub, from its log or from a datagram, and the order of events.

#include <json/value.h>

#include <cstdint>
#include <optional>
#include <string>

#include "client/text/terminal.h"

namespace brumectl {

struct Notification {
    uint64_t id = 0;  ///< 1 for the daemon's first, then ascending by one
    int64_t ts = 0;   ///< seconds since the Epoch
    std::string severity;
    std::string feature;
    std::string name;
    std::string text;

    /** Empty if the value isn't an event. */
    static std::optional<Notification> read(const Json::Value& value);
    /** A line for people, without a newline. */
    std::string line(const Terminal& terminal) const;
};

/** The parameters of the method for events and subscriptions. */
Json::Value notifications_params(const char* cmd, const char* op);
/** 1 for "info", 2 for "warn", 3 for "severe" and its other name "error"; 0 for other words. */
int severity_rank(const std::string& severity);
Terminal::colour_e severity_colour(const std::string& severity);

/** Follows the numbers of events that arrive from two sources, the log and the socket. */
class EventSequence {
 public:
    /** How many events are missing between the last one and this one. */
    uint64_t missing_before(uint64_t id) const { return m_last == 0 || id <= m_last ? 0 : id - m_last - 1; }
    /** False if it has been taken before. */
    bool take(uint64_t id);
    /** The daemon is a different one: its numbers start over. */
    void restart() { m_last = 0; }

 private:
    uint64_t m_last = 0;
};

}  // namespace brumectl
