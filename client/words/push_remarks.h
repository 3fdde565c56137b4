#pragma once
// What the answer to `push_pcap` can't tell of the packets that aren't in it.

#include <json/value.h>

#include <cstdint>

namespace brumectl {

class Daemon;
class Terminal;

class PushRemarks {
 public:
    /** Make it before the push: looks at what our engine has refused until then. @throws NoDaemon, TimedOut
     */
    PushRemarks(Daemon& daemon, const Json::Value& params);

    /**
     * A line each for packets that found no room, told by our engine alone, and for a capture that ends
     * damaged, where it can be read from here. Live traffic that found no room meanwhile is counted, too.
     * @throws NoDaemon, TimedOut, Interrupted
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
