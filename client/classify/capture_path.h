#pragma once
// A data path of the engine for a single capture: its flows are isolated from all others. Not every engine
// has such paths; see `is_known`.

#include <json/value.h>

#include <cstdint>
#include <functional>
#include <string>

#include "client/wire/daemon.h"

namespace brumectl {

class CapturePath {
 public:
    /** Whether the loaded engine has such paths, and methods that report flows. Throws like Daemon::call. */
    static bool is_known(Daemon& daemon);

    /** `guess`: flows that were never named count under a guess by port or address. */
    CapturePath(Daemon& daemon, bool guess);
    CapturePath(const CapturePath&) = delete;
    CapturePath& operator=(const CapturePath&) = delete;
    /** Ends the path. */
    ~CapturePath();

    const std::string& name() const { return m_name; }
    /**
     * Creates the path before the first push, whose packets then need no answers. An engine that can't leaves
     * it to that push. Throws like Daemon::call.
     */
    void open();
    /** Call before each push: the first one creates the path, even if it then fails. */
    void pushed() { m_may_exist = true; }
    bool may_exist() const { return m_may_exist; }
    /**
     * Checks that this same path has received all packets so far, unless `finish` will. Throws Failure if it
     * was another; also like Daemon::call.
     */
    void check();
    /** Keeps the path from expiring; errors show up with the next request. */
    void keep();
    /** Gives all flows their final class and returns the reply of `flows.summary`. Throws like `check`. */
    Json::Value finish();

    /** Returns false to stop. */
    using Take = std::function<bool(const Json::Value&)>;
    /** Lists the flows, largest first by bytes. Throws like Daemon::call. */
    void list_flows(const Take& take);
    /** Lists the addresses, likewise. */
    void list_hosts(const Take& take);

 private:
    Json::Value params() const;
    Json::Value ask_summary(bool finish);

    Daemon& m_daemon;
    bool m_guess;
    std::string m_name;
    bool m_may_exist = false;
    uint64_t m_instance = 0;  ///< 0 if unknown
};

}  // namespace brumectl
