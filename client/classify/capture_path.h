#pragma once
// A data path of the engine for one capture alone: its flows are seen by nobody else and see nobody else's.
// There are engines that have no such thing; `is_known` tells.

#include <json/value.h>

#include <cstdint>
#include <functional>
#include <string>

#include "client/wire/daemon.h"

namespace brumectl {

class CapturePath {
 public:
    /** The engine that is loaded has them, and methods that tell flows. @throws as Daemon::call */
    static bool is_known(Daemon& daemon);

    /** `guess`: flows that were never named count under a guess by port or address. */
    CapturePath(Daemon& daemon, bool guess);
    CapturePath(const CapturePath&) = delete;
    CapturePath& operator=(const CapturePath&) = delete;
    /** Ends it. */
    ~CapturePath();

    const std::string& name() const { return m_name; }
    /** It comes with the first push, whatever comes of that. */
    void pushed() { m_may_exist = true; }
    bool may_exist() const { return m_may_exist; }
    /** It was this path that took the packets so far. @throws Failure if it was another; as Daemon::call */
    void check();
    /** Keeps it from ending of disuse; what goes wrong shows with the next request. */
    void keep();
    /** All flows have got their last class: what `flows.summary` answers. @throws as `check` */
    Json::Value finish();

    /** False: no more of them. */
    using Take = std::function<bool(const Json::Value&)>;
    /** The flows, those with the most bytes first. @throws as Daemon::call */
    void list_flows(const Take& take);
    /** The addresses, likewise. */
    void list_hosts(const Take& take);

 private:
    Json::Value params() const;
    Json::Value ask_summary(bool finish);
    void list(const char* method, const char* member, Json::Value params, const Take& take);

    Daemon& m_daemon;
    bool m_guess;
    std::string m_name;
    bool m_may_exist = false;
    uint64_t m_instance = 0;  ///< 0: not known yet
};

}  // namespace brumectl
