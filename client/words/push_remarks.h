#pragma once
// What the result of `push_pcap` can't say about the packets missing from it.

#include <json/value.h>

#include <cstdint>

namespace brumectl {

class Daemon;
class Terminal;

class PushRemarks {
 public:
    /** Create it before the push: reads what our engine has refused so far. Throws NoDaemon, TimedOut. */
    PushRemarks(Daemon& daemon, const Json::Value& params);

    /**
     * Prints a line for packets that found no room, which only our engine reports, and one for a capture that
     * ends damaged, if it can be read from here. Includes live traffic that found no room in the meantime.
     * A daemon that doesn't answer any more costs a remark, nothing else. Throws Interrupted.
     */
    void tell(const Terminal& err) const;

 private:
    uint64_t refused() const;
    void tell_damage(const Terminal& err) const;

    Daemon& m_daemon;
    const Json::Value& m_params;
    uint64_t m_refused_before;
};

}  // namespace brumectl
