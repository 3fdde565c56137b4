#include "server/corvo_server_command_line.h"

#include <sys/resource.h>

#include <cstdint>
#include <cstdlib>
#include <limits>
#include <sstream>
#include <vector>

#include "utils/net_utils.h"
#include "utils/optparse/option_parser.h"
#include "utils/trace_utils.h"

const std::string process_name = "brumecpd";

namespace corvo::server {
namespace {

using optparse::OptionParser;
using optparse::Values;

constexpr const char* DEFAULT_SOCKET = "0.0.0.0:4040";
constexpr long MAX_HOG_TIMEOUT_MS = 59999;
constexpr long MAX_KILL_TIMEOUT_MS = 7200000;  // inclusive: it is the default in slave mode
constexpr unsigned long PORT_LIMIT = 65536;

template <typename T>
struct Choice {
    const char* text;
    T value;
};

constexpr Choice<Logger::logger_level_e> LEVELS[] = {
    {"none", Logger::QUIET}, {"error", Logger::ERROR}, {"warning", Logger::WARN},
    {"info", Logger::INFO},  {"debug", Logger::DEBUG},
};

constexpr Choice<Options::mode_e> MODES[] = {
    {"km", Options::MODE_KERNEL},
    {"us", Options::MODE_USERSPACE},
};

template <typename T, size_t N>
std::vector<std::string> texts_of(const Choice<T> (&choices)[N]) {
    std::vector<std::string> texts;
    for (const Choice<T>& choice : choices)
        texts.emplace_back(choice.text);
    return texts;
}

/** Null if `text` isn't one of them. */
template <typename T, size_t N>
const Choice<T>* find_choice(const Choice<T> (&choices)[N], const std::string& text) {
    for (const Choice<T>& choice : choices)
        if (text == choice.text) return &choice;
    return nullptr;
}

/** Empty texts and lists mean none. */
struct OptionDeclaration {
    std::vector<std::string> names;
    const char* action;
    const char* type;
    std::vector<std::string> choices;
    std::string default_text;
    std::string help;
};

std::string help_default(const std::string& text, const std::string& value, const std::string& unit) {
    return text + " (default: " + value + unit + ")";
}

/** In the order of the help text. The watchdog's defaults come from its own settings. */
std::vector<OptionDeclaration> option_table() {
    const WDConf wd;
    const std::string log_file = "/tmp/" + process_name + ".log";
    const std::string hog_timeout = std::to_string(wd.hog_timeout_ms);
    const std::string kill_timeout = std::to_string(wd.kill_timeout_ms);
    const std::string multiplier = (std::ostringstream() << wd.backoff_multiplier).str();
    const std::string long_multiplier = std::to_string(wd.backoff_multiplier);
    const std::string max_interval = std::to_string(wd.backoff_max_interval_sec);
    const std::string reset_interval = std::to_string(wd.backoff_reset_interval_sec);
    const std::string config_help =
        "config file containing JSON array with JSON RPC requests as its elements. "
        "Those requests will be executed after RPC server has started. \n"
        "NOTE: if flag is not used, server will load config from \".config\" file (if exists)\n"
        "NOTE: can't be used in conjunction with -a or --attach";

    return {
        {{"-s", "--socket"},
         "store",
         "string",
         {},
         DEFAULT_SOCKET,
         "socket to listen on (e.g. string for Unix socket, IP:PORT for TCP)"},
        {{"-v", "--verbose"},
         "store",
         "choice",
         texts_of(LEVELS),
         "info",
         "set verbose level('none', 'error', 'info', 'debug'"},
        {{"-m", "--mode"},
         "store",
         "choice",
         texts_of(MODES),
         "",
         "kernel mode or userspace mode ('km', 'us')"},
        {{"-d", "--daemon"}, "store_true", "", {}, "0", "run as daemon"},
        {{"-l", "--logfile"},
         "store",
         "string",
         {},
         log_file,
         help_default("log file for the session", log_file, "")},
        {{"-c", "--config_file"}, "store", "string", {}, "", config_help},
        {{"-a", "--activate"}, "store_true", "", {}, "0", "load and activate VELD on startup"},
        {{"--attach"}, "append", "string", {}, "", "attach to interface(s)"},
        {{"--nocore"}, "store_true", "", {}, "0", "disable core dump"},
        {{"--wd_reload"}, "store_true", "", {}, "0", "reloads the process in case of abnormal exit"},
        {{"--wd_no_hog"}, "store_true", "", {}, "0", "disables monitoring the process for CPU hogs"},
        {{"--wd_disable"},
         "store_true",
         "",
         {},
         "0",
         "disable any watch dog activity (set implicitly under GDB"},
        {{"--wd_hog_timeout"},
         "store",
         "int",
         {},
         hog_timeout,
         help_default("controls the hog detection timeout in milli-seconds", hog_timeout, " ms")},
        {{"--wd_kill_timeout"},
         "store",
         "int",
         {},
         kill_timeout,
         help_default("controls the kill action time in milli-seconds", kill_timeout, " ms")},
        {{"--wd_reload_backoff_multiplier"},
         "store",
         "double",
         {},
         multiplier,
         help_default("controls the reload backoff multiplier factor", long_multiplier, "")},
        {{"--wd_reload_backoff_max_interval"},
         "store",
         "long",
         {},
         max_interval,
         help_default("controls the reload backoff max interval", max_interval, " sec")},
        {{"--wd_reload_backoff_reset_interval"},
         "store",
         "long",
         {},
         reset_interval,
         help_default("controls the timeout, after which backoff times get reset", reset_interval, " sec")},
    };
}

void declare_options(OptionParser& parser) {
    for (const OptionDeclaration& declaration : option_table()) {
        optparse::Option& option = parser.add_option(declaration.names).action(declaration.action);
        if (!declaration.choices.empty()) option.choices(declaration.choices);
        if (*declaration.type) option.type(declaration.type);
        // They exceed an int only for their unsigned values, which isn't worth telling users.
        if (declaration.type == std::string_view("long")) option.value_label("INT");
        option.set_default(declaration.default_text).help(declaration.help);
    }
}

void check_combinations(const OptionParser& parser, const Values& values) {
    const bool attach = values.is_set_by_user("attach");
    const bool activate = values.is_set_by_user("activate");
    if (attach && !activate) parser.error("'--attach' is supported only with '--activate'");
    if (values.is_set_by_user("config_file") && (activate || attach))
        parser.error("'-c can't be used in conjunction with -a or --attach'");
    if (!find_choice(MODES, values["mode"])) parser.error("please specify run mode (either 'us' or 'km')");
}

void disable_core_dumps() {
    const rlimit none{0, 0};
    setrlimit(RLIMIT_CORE, &none);
}

/** An empty text is port 0: the system chooses one. */
uint16_t parse_port(const OptionParser& parser, const std::string& text) {
    char* end = nullptr;
    const auto port =
        static_cast<unsigned long>(std::strtol(text.c_str(), &end, 10));  // negative numbers become too large
    if (*end != '\0' || port >= PORT_LIMIT) parser.error("invalid port: '" + text + "'");
    return static_cast<uint16_t>(port);
}

void read_socket(const OptionParser& parser, const std::string& text, Options& options) {
    const size_t colon = text.find(':');
    if (colon == std::string::npos) {
        options.transport = Options::TRANSPORT_UNIX;
        options.unix_path = text;
        return;
    }
    options.transport = Options::TRANSPORT_TCP;
    options.tcp_addr = text.substr(0, colon);
    if (!NetUtils::is_valid_ipv4(options.tcp_addr)) parser.error("invalid IP address: '" + text + "'");
    options.tcp_port = parse_port(parser, text.substr(colon + 1));
}

/** Wide enough for any user input: the checks come before the narrower fields of WDConf. */
struct WdNumbers {
    explicit WdNumbers(const Values& values)
        : hog_timeout(integer(values["wd_hog_timeout"])),
          kill_timeout(integer(values["wd_kill_timeout"])),
          multiplier(std::strtod(values["wd_reload_backoff_multiplier"].c_str(), nullptr)),
          max_interval(integer(values["wd_reload_backoff_max_interval"])),
          reset_interval(integer(values["wd_reload_backoff_reset_interval"])) {}

    static int64_t integer(const std::string& text) { return std::strtoll(text.c_str(), nullptr, 10); }

    int64_t hog_timeout;
    int64_t kill_timeout;
    double multiplier;
    int64_t max_interval;
    int64_t reset_interval;
};

bool outside(int64_t value, int64_t max) {
    return value < 1 || value > max;
}

/**
 * An interval may be any 32-bit value except 0; a negative number stands for the unsigned one with the
 * same bits.
 */
bool no_interval(int64_t value) {
    return value == 0 || value < std::numeric_limits<int32_t>::min() ||
           value > std::numeric_limits<uint32_t>::max();
}

void check_rules(const OptionParser& parser, const WdNumbers& wd) {
    const struct {
        bool broken;
        const char* message;
    } rules[] = {
        {wd.kill_timeout <= wd.hog_timeout, "wd_kill_timeout must be larger than wd_hog_timeout)"},
        {outside(wd.hog_timeout, MAX_HOG_TIMEOUT_MS), "wd_hog_timeout must be positive and lower than 60000"},
        {outside(wd.kill_timeout, MAX_KILL_TIMEOUT_MS),
         "wd_kill_timeout must be positive and lower than 7200000"},
        {!(wd.multiplier >= 1), "wd_reload_backoff_multiplier must be greater or equal to 1"},
        {no_interval(wd.max_interval), "wd_reload_backoff_max_interval must be positive"},
        {no_interval(wd.reset_interval), "wd_reload_backoff_reset_interval must be positive"},
    };
    for (const auto& rule : rules)
        if (rule.broken) parser.error(rule.message);
}

WDConf watchdog_settings(const Values& values, const WdNumbers& numbers, bool traced) {
    WDConf wd;
    wd.hog_enabled = !values.get("wd_no_hog");
    wd.reload_enabled = values.get("wd_reload");
    wd.disabled = traced || values.get("wd_disable");
    wd.hog_timeout_ms = static_cast<uint32_t>(numbers.hog_timeout);
    wd.kill_timeout_ms = static_cast<uint32_t>(numbers.kill_timeout);
    wd.backoff_multiplier = numbers.multiplier;
    wd.backoff_max_interval_sec = static_cast<uint32_t>(numbers.max_interval);
    wd.backoff_reset_interval_sec = static_cast<uint32_t>(numbers.reset_interval);
    wd.check_params();
    return wd;
}

}  // namespace

Options parse_command_line(int argc, const char* const* argv) {
    OptionParser parser;
    declare_options(parser);
    const Values values = parser.parse_args(argc, argv);
    check_combinations(parser, values);
    if (values.get("nocore")) disable_core_dumps();

    Options options;
    read_socket(parser, values["socket"], options);
    const WdNumbers numbers(values);
    check_rules(parser, numbers);

    options.mode = find_choice(MODES, values["mode"])->value;
    options.level = find_choice(LEVELS, values["verbose"])->value;
    options.activate = values.get("activate");
    options.log_file = values["logfile"];
    options.config_file = values["config_file"];
    options.daemon = values.get("daemon");
    options.interfaces = values.all("attach");
    options.set_global = true;
    options.traced = TraceUtils::i_am_traced();
    options.wd = watchdog_settings(values, numbers, options.traced);
    return options;
}

}  // namespace corvo::server
