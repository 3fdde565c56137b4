#pragma once
// The server's view of a watchdog, be it a supervising one or one that does nothing.

#include <deque>
#include <memory>
#include <string>

#include "infra/corvo_logger.h"
#include "server/watchdog/corvo_server_sig.h"
#include "server/watchdog/corvo_wd_conf.h"

namespace corvo {
class Scheduler;
}

namespace corvo::server {

class WDInstance {
 public:
    /** Throws corvo::Exception if the default settings violate their own rules. */
    WDInstance() { m_conf.check_params(); }
    WDInstance(const WDInstance&) = delete;
    WDInstance& operator=(const WDInstance&) = delete;

    /** A real watchdog forks here, and only the child returns. */
    virtual void init(const WDConf& conf, const std::string& log_file, const std::string& config_file,
                      Logger::logger_level_e level) = 0;
    /** Called once the scheduler and the engine object exist. */
    virtual void run(Scheduler* sched) = 0;
    /** Leaves a report of a signal, or with `signum` 0 of an orderly stop, whose cause is `text`. */
    virtual void report(int signum, const char* text) const = 0;
    virtual const std::deque<std::unique_ptr<SignalReport>>& get_sig_events() const = 0;
    virtual ~WDInstance() = default;

 protected:
    WDConf m_conf;
};

}  // namespace corvo::server
