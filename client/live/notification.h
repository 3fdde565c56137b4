#pragma once
// One event of the daemon's notification hub, from its log or from a datagram, and the order of many.

#include <json/value.h>

#include <cstdint>
#include <optional>
#include <string>

#include "client/text/terminal.h"

namespace brumectl {

struct Notification {
    uint64_t id = 0;  ///< 1 for the daemon's first; the next one's is one higher
    int64_t ts = 0;   ///< seconds of the epoch
    std::string severity;
    std::string feature;
    std::string name;
    std::string text;

    /** Nothing for what is no event. */
    static std::optional<Notification> read(const Json::Value& value);
    /** A line for people, without a newline. */
    std::string line(const Terminal& terminal) const;
};

/** Of the method that tells of events and subscriptions: what it is asked for. */
Json::Value notifications_params(const char* cmd, const char* op);
/** "info" 1, "warn" 2, "severe" and its other name "error" 3; 0 for other words. */
int severity_rank(const std::string& severity);
Terminal::colour_e severity_colour(const std::string& severity);

/** Follows the running numbers of events that come from two sources, the log and the socket. */
class EventSequence {
 public:
    /** How many are missing between the last one and this. */
    uint64_t missing_before(uint64_t id) const { return m_last == 0 || id <= m_last ? 0 : id - m_last - 1; }
    /** False if it has been taken before. */
    bool take(uint64_t id);
    /** The daemon is another one: its numbers begin anew. */
    void restart() { m_last = 0; }

 private:
    uint64_t m_last = 0;
};

}  // namespace brumectl
