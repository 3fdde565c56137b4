#pragma once
// One engine in place of another, step by step, and back again where the new one fails. Every step is a
// request of its own, so clients that come between see the engine's states as they change.

#include <json/value.h>

#include <functional>
#include <string>
#include <vector>

#include "client/text/engine_state.h"
#include "client/wire/daemon.h"

namespace brumectl {

struct Request {
    std::string method;
    Json::Value params = {};
};

/** All that it takes to bring an engine to where it is. */
struct EngineSetup {
    engine_state_e state = LOADED;         ///< how far it goes
    Json::Value load = Json::objectValue;  ///< the methods' parameters
    Json::Value activate = Json::objectValue;
    std::vector<std::string> interfaces = {};
    /** What the engine was told since: worth a try, but an engine may have other collectors. */
    std::vector<Request> settings = {};
};

/**
 * What the daemon shows of the engine that it has. `status` is its answer. Not shown, and left out here, are
 * what `load` was given and what `activate` was but the size of the flow table.
 * @throws what Daemon::call throws but ErrorReply
 */
EngineSetup shown_setup(Daemon& daemon, const Json::Value& status);

class EngineSwap {
 public:
    enum outcome_e { SWAPPED, WENT_BACK, FAILED };
    /** Called behind each step; `error` is empty for one that went well. */
    using Tell = std::function<void(const Request& step, const std::string& error)>;

    EngineSwap(Daemon& daemon, Tell tell) : m_daemon(daemon), m_tell(std::move(tell)) {}

    /** @throws what Daemon::call throws but ErrorReply: then it ended in the middle */
    outcome_e run(const EngineSetup& present, const EngineSetup& wanted);

 private:
    engine_state_e state();
    bool step(const Request& request);
    bool take_down();
    bool bring_up(const EngineSetup& setup);

    Daemon& m_daemon;
    Tell m_tell;
};

}  // namespace brumectl
