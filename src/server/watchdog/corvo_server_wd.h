#pragma once
// The watchdog as the server sees it: a facade over one instance. With the watchdog off that is WDNull, which
// does nothing at all; otherwise WDReal, whose parent process never comes back from `init`.

#include <deque>
#include <memory>
#include <string>

#include "server/watchdog/corvo_wd_instance.h"

namespace corvo::server {

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
