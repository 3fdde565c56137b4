#pragma once
// The disabled watchdog: no fork, no handlers, no reports.

#include "server/watchdog/corvo_wd_instance.h"

namespace corvo::server {

class WDNull : public WDInstance {
 public:
    void init(const WDConf&, const std::string&, const std::string&, Logger::logger_level_e) override {}
    void run(Scheduler*) override {}
    void report(int, const char*) const override {}
    const std::deque<std::unique_ptr<SignalReport>>& get_sig_events() const override { return m_none; }

 private:
    std::deque<std::unique_ptr<SignalReport>> m_none;
};

}  // namespace corvo::server
