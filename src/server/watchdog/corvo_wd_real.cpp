#include "server/watchdog/corvo_wd_real.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "infra/corvo_logger.h"
#include "infra/corvo_scheduler.h"
#include "server/watchdog/corvo_heartbeat.h"
#include "server/watchdog/corvo_server_sig.h"
#include "server/watchdog/corvo_wd_events_dir.h"
#include "server/watchdog/corvo_wd_evidence.h"
#include "server/watchdog/corvo_wd_orphan.h"
#include "server/watchdog/corvo_wd_signals.h"

namespace corvo::server {
namespace {

const std::string COMP = "WD";

constexpr unsigned int REPORT_CAPACITY = 100;

/** An earlier child may have left it: after an orderly stop nobody moves it away. */
void remove_stale(const EventsDir& dir, const std::string& name, const std::string& path) {
    if (!dir || !dir.has(name) || dir.remove(name)) return;
    CORVO_LOG(ERROR, COMP, "Failed to remove '%s' [%s]", path.c_str(), strerror(errno));
}

}  // namespace

WDReal::WDReal(const WatchedServer& server)
    : m_server(server), m_wd_signals(std::begin(WD_SIGNALS), std::end(WD_SIGNALS)) {
    register_wd_signals();
}

WDReal::~WDReal() {
    unregister_wd_signals();
}

void WDReal::register_wd_signals() {
    // No SA_RESTART: a heartbeat or a stop must interrupt the parent's wait.
    struct sigaction action {};
    action.sa_handler = signal_handler;
    for (const int signum : m_wd_signals)
        sigaddset(&action.sa_mask, signum);
    for (const int signum : m_wd_signals)
        sigaction(signum, &action, &m_prev_sigact[signum]);
}

void WDReal::unregister_wd_signals() {
    struct sigaction by_default {};
    by_default.sa_handler = SIG_DFL;
    for (const int signum : m_wd_signals) {
        const auto previous = m_prev_sigact.find(signum);
        unregister_wd_signal(signum, previous == m_prev_sigact.end() ? by_default : previous->second);
    }
}

void WDReal::unregister_wd_signal(int signum, const struct sigaction& action) {
    sigaction(signum, &action, nullptr);
}

void WDReal::init(const WDConf& conf, const std::string& log_file, const std::string& config_file,
                  Logger::logger_level_e level) {
    m_conf = conf;
    m_log_file = log_file;
    m_config_file = config_file;
    m_log_level = level;
    m_stderr_wait_ms = conf.hog_timeout_ms / 2;
    launch_wd();
    CORVO_LOG(DEBUG, COMP, "Real WD initialized");
}

void WDReal::run(Scheduler* sched) {
    const std::string hog_dump =
        std::string(SigHandler::get_sig_dump_dir_path()) + SigHandler::hog_dump_name();
    const std::string report_name = SigHandler::dump_prefix() + "json";
    const EventsDir events(get_events_dest_dir_name(m_log_file), EventsDir::LEAVE);
    if (m_hog_detection) {
        // If an engine library ignores SIGPIPE, the kernel's notice of the parent's death doesn't
        // get through.
        auto heartbeat =
            std::make_shared<HeartBeat>(m_conf.hog_timeout_ms, m_parent_pid, drop_stderr_of_orphan);
        sched->add(heartbeat, 0);
        CORVO_LOG(DEBUG, COMP, "Heartbeat task added to scheduler with interval of %u ms",
                  heartbeat->send_interval_ms());
    } else {
        CORVO_LOG(DEBUG, COMP, "HOG detection is disabled by configuration");
    }
    m_hog_reporter = std::make_unique<HogReporter>(sched, m_sig_events, REPORT_CAPACITY, hog_dump);
    remove_stale(events, SigHandler::hog_dump_name(), hog_dump);
    remove_stale(events, report_name, events.path() + "/" + report_name);
    SigHandler::register_state_change_cb();
}

void WDReal::report(int signum, const char* text) const {
    SigHandler::write_sig_report(signum, text);
}

}  // namespace corvo::server
