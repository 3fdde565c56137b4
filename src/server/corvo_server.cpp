#include "server/corvo_server.h"

#include <unistd.h>

#include <cassert>

#include "infra/corvo_logger.h"
#include "infra/corvo_scheduler.h"
#include "infra/corvo_version.h"
#include "infra/json/corvo_jsonrpc_v2.h"
#include "server/corvo_server_config.h"
#include "server/corvo_server_daemonize.h"
#include "server/corvo_server_defaults.h"
#include "server/corvo_server_loader_km.h"
#include "server/corvo_server_loader_us.h"
#include "server/corvo_server_tasks.h"
#include "server/corvo_server_watched.h"
#include "server/rpc/core/corvo_rpc_core.h"
#include "server/rpc/corvo_rpc_server.h"
#include "utils/clock.h"
#include "utils/cpu_utils.h"

namespace corvo::server {
namespace {

const std::string COMP = "server";
const std::string LEAK_COMP = "LeakD";

constexpr int NO_EARLY_STOP = -1;
constexpr int WATCHDOG_PERIOD_MS = 10000;
constexpr unsigned WATCHDOG_FIRST_MS = 1000;
constexpr unsigned LEAK_CHECK_DELAY_MS = 5000;

void signal_handler(int signum) {
    Server::on_signal(signum);
}

struct sigaction masking(std::initializer_list<int> signals) {
    struct sigaction action {};
    sigemptyset(&action.sa_mask);
    for (int signum : signals)
        sigaddset(&action.sa_mask, signum);
    return action;
}

}  // namespace

Server* Server::g_ptr = nullptr;

Server::Server(const Options& options)
    : m_options(options), m_wd(watched_server()), m_early_stop(NO_EARLY_STOP) {}

Server::~Server() {
    m_rpc_server.reset();
    Logger::close_logger();
    if (g_ptr == this) g_ptr = nullptr;
}

// --- stop causes ------------------------------------------------------------------------------------------

const char* Server::exitcause_to_str(int cause) const {
    static constexpr const char* texts[] = {
        "fatal error detected",
        "CTRL + C detected",
        "received signal SIGINT",
        "received signal SIGTERM",
        "server received 'shutdown' request",
    };
    if (cause < EXIT_CAUSE_FATAL || cause > EXIT_CAUSE_SHUTDOWN) return "unknown error";
    return texts[cause];
}

void Server::stop(exitcause_e cause) {
    if (m_sched)
        m_sched->stop(cause);
    else
        m_early_stop = cause;
}

void Server::on_signal(int signum) {
    // A signal may still arrive after the server is destroyed, just before the process ends.
    if (!g_ptr) return;
    assert(signum == SIGINT || signum == SIGTERM);
    g_ptr->stop(signum == SIGINT ? EXIT_CAUSE_SIGINT : EXIT_CAUSE_SIGTERM);
}

void Server::register_signals() {
    // No SA_RESTART: a stop signal must interrupt a blocking wait.
    struct sigaction action = masking({SIGINT, SIGTERM, SIGUSR2});
    action.sa_handler = signal_handler;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);

    struct sigaction ignored = masking({SIGUSR2, SIGPIPE});
    ignored.sa_handler = SIG_IGN;
    sigaction(SIGUSR2, &ignored, nullptr);
}

// --- start ------------------------------------------------------------------------------------------------

void Server::become_global() {
    if (!m_options.set_global) return;
    g_ptr = this;
    if (m_options.daemon && !daemonize()) throw Exception("failed creating a daemon");
}

bool Server::daemonize() {
    return server::daemonize();
}

void Server::init() {
    become_global();
    register_signals();
    Logger::clear_log_file(m_options.log_file);
    m_wd.init(m_options.wd, m_options.log_file, m_options.config_file, m_options.level);
    m_start_time = monotonic_sec();
    Logger::open_logger(m_options.daemon ? Logger::LOGGER_SYSLOG : Logger::LOGGER_CONSOLE, m_options.level,
                        m_options.log_file);
    create_commands();
    create_rpc_server();
    m_rpc_server->connect();
    log_destination();
    create_engine();
    m_wd.run(m_sched.get());
    log_banner();
    add_watchdog_task();
    log_version();
}

void Server::create_commands() {
    m_cmds.load_component(new RpcCmdsCore());
    m_sched = std::make_unique<Scheduler>();
    if (m_early_stop != NO_EARLY_STOP) m_sched->stop(m_early_stop);
}

void Server::create_rpc_server() {
    auto handler = [this](const std::string& request, std::string& response) {
        handle_rpc_request(request, response);
    };
    switch (m_options.transport) {
        case Options::TRANSPORT_UNIX:
            m_rpc_server = std::make_shared<RPCServer>(m_options.unix_path, m_sched.get(), handler);
            return;
        case Options::TRANSPORT_TCP:
            m_rpc_server =
                std::make_shared<RPCServer>(m_options.tcp_addr, m_options.tcp_port, m_sched.get(), handler);
            return;
    }
    assert(!"the command line gives no other transport");
}

void Server::log_destination() const {
    if (m_options.daemon) CORVO_LOG(INFO, COMP, "Starting server as a daemon");
    if (m_options.log_file.empty()) return;
    // The logger's name stays empty if the file couldn't be opened.
    if (Logger::get_log_filename() == m_options.log_file)
        CORVO_LOG(INFO, COMP, "Current session logging being saved at '%s'", m_options.log_file.c_str());
    else
        CORVO_LOG(WARN, COMP, "Failed creating a log file: '%s'", m_options.log_file.c_str());
}

void Server::create_engine() {
    if (m_options.mode == Options::MODE_KERNEL) {
        CORVO_LOG(INFO, COMP, "Configured in: 'kernel mode'");
        m_engine = std::make_unique<EngineKM>(*m_sched);
    } else {
        CORVO_LOG(INFO, COMP, "Configured in: 'userspace mode'");
        m_engine = std::make_unique<EngineUS>(*m_sched);
    }
}

void Server::log_banner() const {
    std::string attributes = Version::g_is_optimized ? "optimized" : "debug";
    if (Version::g_sanitizer == 1) attributes += ", asan";
    if (Version::g_sanitizer == 2) attributes += ", tsan";
    if (Version::g_bare_metal) attributes += ", bare metal";
    if (Version::g_in_slave_mode) attributes += ", slave";

    CORVO_LOG(INFO, COMP, "Architecture:   %s", CpuUtils::Arch().c_str());
    CORVO_LOG(INFO, COMP, "Compiler:       gcc %d.%d.%d", __GNUC__, __GNUC_MINOR__, __GNUC_PATCHLEVEL__);
    CORVO_LOG(INFO, COMP, "Attributes:     %s", attributes.c_str());
}

void Server::add_watchdog_task() {
    m_sched->add(std::make_shared<WatchdogTask>(WATCHDOG_PERIOD_MS), WATCHDOG_FIRST_MS);
}

void Server::log_version() const {
    static constexpr const char* frame = "*************                      ************";
    static constexpr const char* row = "***********************************************";
    static constexpr const char* warning[] = {
        row,
        frame,
        "*************  Development Image   ************",
        frame,
        "*************  should not be used  ************",
        "*************    in production     ************",
        frame,
        row,
    };

    CORVO_LOG(INFO, COMP, "GIT SHA:        %s", Version::g_gitsha);
    CORVO_LOG(INFO, COMP, "Version:        %s", Version::g_version);
    CORVO_LOG(INFO, COMP, "Image:          %s", Version::g_is_dev_image ? "dev" : "release");
    if (!Version::g_is_dev_image) return;
    for (const char* line : warning)
        CORVO_LOG(WARN, COMP, "%s", line);
}

// --- run --------------------------------------------------------------------------------------------------

void Server::run() {
    int cause = EXIT_CAUSE_FATAL;
    try {
        init();
        cause = serve();
    } catch (const Exception& e) {
        CORVO_LOG_TEXT(ERROR, COMP, std::string(e.what()));
        bring_engine_down();
    }
    CORVO_LOG(WARN, COMP, "CP shutdown - cause: %s", exitcause_to_str(cause));
}

/** After a failed start. The engine may fail here too; the process is about to end in any case. */
void Server::bring_engine_down() {
    if (!m_engine) return;
    try {
        m_engine->cleanup();
    } catch (const Exception& e) {
        CORVO_LOG_TEXT(ERROR, COMP, std::string(e.what()));
    }
}

int Server::serve() {
    if (m_options.traced) CORVO_LOG(WARN, COMP, "*** GDB detected ***");
    m_sched->register_to_scheduler_event(Scheduler::SCHED_EVENT_STOP, [this](int cause) { on_stop(cause); });
    load_config_file();
    init_leak_detector();
    auto_start();
    // Added last, so that no client is served before the automatic start has finished.
    m_sched->add(m_rpc_server, EVENT_STATE_READ, 0);
    CORVO_LOG(INFO, COMP, "Waiting for messages");
    return m_sched->run();
}

void Server::load_config_file() {
    std::string path = m_options.config_file;
    if (path.empty() && file_exists(get_default_conf_path())) path = get_default_conf_path();
    if (path.empty()) return;
    if (m_options.activate || !m_options.interfaces.empty())
        throw Exception("can't use configuration file (" + path + ") in conjunction with -a or --attach");
    m_sched->add(std::make_shared<ReadConfig>(path,
                                              [this](const std::string& request, std::string& response) {
                                                  handle_rpc_request(request, response);
                                              }),
                 0);
}

void Server::init_leak_detector() {
    if (m_options.traced)
        CORVO_LOG(INFO, LEAK_COMP, "Leak detection isn't activated under GDB");
    else if (Version::g_sanitizer)
        m_sched->add(std::make_shared<LeakDetector>(), LEAK_CHECK_DELAY_MS);
}

void Server::auto_start() {
    if (m_options.activate) {
        api::InitConfig config;
        config.cp_addr = default_cpaddr;
        config.cmds = &m_cmds;
        m_engine->load_engine(default_engine_path, config);
        m_engine->activate({.max_flows = default_max_flows, .dp_workers = 1, .writable_shm = false});
    }
    for (const std::string& ifname : m_options.interfaces)
        m_engine->attach(ifname);
}

/** Runs after the loop has ended, before tasks and events are cleared. */
void Server::on_stop(int cause) {
    m_wd.report(0, exitcause_to_str(cause));
    m_engine->cleanup();
    m_rpc_server.reset();
}

// --- what others ask --------------------------------------------------------------------------------------

void Server::handle_rpc_request(const std::string& request, std::string& response) {
    response = ReqParser(request, m_cmds).execute();
}

int Server::get_uptime() const {
    return static_cast<int>(monotonic_sec() - m_start_time);
}

bool Server::file_exists(const std::string& path) const {
    return access(path.c_str(), R_OK) == 0;
}

void Server::get_rpc_cmds(std::vector<std::string>& out) {
    m_cmds.query(out);
}

const std::deque<std::unique_ptr<SignalReport>>& Server::get_sig_events() const {
    return m_wd.get_sig_events();
}

}  // namespace corvo::server
