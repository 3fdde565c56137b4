#include "server/watchdog/corvo_server_wd.h"

#include "server/watchdog/corvo_wd_real.h"

namespace corvo::server {

/** The disabled watchdog: no fork, no handlers, no reports. */
class WDNull : public WDInstance {
 public:
    void init(const WDConf&, const std::string&, const std::string&, Logger::logger_level_e) override {}
    void run(Scheduler*) override {}
    void report(int, const char*) const override {}
    const std::deque<std::unique_ptr<SignalReport>>& get_sig_events() const override { return m_none; }

 private:
    std::deque<std::unique_ptr<SignalReport>> m_none;
};

WatchDog::WatchDog(const WatchedServer& server) : m_server(server), m_instance(std::make_unique<WDNull>()) {}
WatchDog::~WatchDog() = default;

void WatchDog::init(const WDConf& conf, const std::string& log_file, const std::string& config_file,
                    Logger::logger_level_e level) {
    // The old instance must restore its signal handlers before the new one installs its own.
    m_instance.reset();
    if (conf.disabled)
        m_instance = std::make_unique<WDNull>();
    else
        m_instance = std::make_unique<WDReal>(m_server);
    m_instance->init(conf, log_file, config_file, level);
}

void WatchDog::run(Scheduler* sched) {
    m_instance->run(sched);
}

void WatchDog::report(int signum, const char* text) const {
    m_instance->report(signum, text);
}

const std::deque<std::unique_ptr<SignalReport>>& WatchDog::get_sig_events() const {
    return m_instance->get_sig_events();
}

}  // namespace corvo::server
