#pragma once
// Replaces one engine by another, step by step, and goes back if the new one fails. Each step is a separate
// request, so other clients see the engine's states change in between.

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

/** Everything needed to bring an engine to its present state. */
struct EngineSetup {
    engine_state_e state = LOADED;         ///< how far it goes
    Json::Value load = Json::objectValue;  ///< the methods' parameters
    Json::Value activate = Json::objectValue;
    std::vector<std::string> interfaces = {};
    /** Settings made since then: worth restoring, although another engine may have other collectors. */
    std::vector<Request> settings = {};
};

/**
 * What the daemon shows of its current engine. `status` is its result. Not shown, and so not included, are
 * the parameters of `load`, and those of `activate` except the size of the flow table.
 * Throws what Daemon::call throws, except ErrorReply.
 */
EngineSetup shown_setup(Daemon& daemon, const Json::Value& status);

class EngineSwap {
 public:
    enum outcome_e { SWAPPED, WENT_BACK, FAILED };
    /** Called after each step; `error` is empty if it succeeded. */
    using Tell = std::function<void(const Request& step, const std::string& error)>;

    EngineSwap(Daemon& daemon, Tell tell) : m_daemon(daemon), m_tell(std::move(tell)) {}

    /** Throws what Daemon::call throws, except ErrorReply; it has then stopped in the middle. */
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
