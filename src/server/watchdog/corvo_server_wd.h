#pragma once
// The watchdog as seen by the server: a facade over one instance. That is WDNull, which does nothing, if the
// watchdog is off; otherwise WDReal, whose parent process never returns from `init`.

#include <deque>
#include <memory>
#include <string>

#include "infra/corvo_logger.h"
#include "server/watchdog/corvo_wd_conf.h"

namespace corvo {
class Scheduler;
}

namespace corvo::server {

class SignalReport;
class WatchedServer;

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

class WatchDog {
 public:
    explicit WatchDog(const WatchedServer& server);
    WatchDog(const WatchDog&) = delete;
    WatchDog& operator=(const WatchDog&) = delete;
    ~WatchDog();

    /** Replaces an earlier instance. */
    void init(const WDConf& conf, const std::string& log_file, const std::string& config_file,
              Logger::logger_level_e level);
    void run(Scheduler* sched);
    void report(int signum, const char* text) const;
    const std::deque<std::unique_ptr<SignalReport>>& get_sig_events() const;

 private:
    const WatchedServer& m_server;
    std::unique_ptr<WDInstance> m_instance;
};

}  // namespace corvo::server
