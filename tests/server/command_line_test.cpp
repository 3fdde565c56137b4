#include "server/corvo_server_command_line.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "utils/trace_utils.h"

namespace corvo::server {
namespace {

using Words = std::vector<const char*>;

/** The mode that every command line needs is given already. */
Options parse(Words words) {
    words.insert(words.begin(), {"/usr/sbin/brumecpd", "--mode=us"});
    return parse_command_line(static_cast<int>(words.size()), words.data());
}

void expect_refused(const Words& words, const std::string& message) {
    EXPECT_EXIT(parse(words), testing::ExitedWithCode(2),
                "^Usage: brumecpd \\[options\\]\nbrumecpd: error: " + message + "\n$");
}

TEST(CommandLine, HasADefaultForAllButTheMode) {
    const Options options = parse({});
    EXPECT_EQ(options.transport, Options::TRANSPORT_TCP);
    EXPECT_EQ(options.tcp_addr, "0.0.0.0");
    EXPECT_EQ(options.tcp_port, 4040);
    EXPECT_EQ(options.mode, Options::MODE_USERSPACE);
    EXPECT_EQ(options.level, Logger::INFO);
    EXPECT_EQ(options.log_file, "/tmp/brumecpd.log");
    EXPECT_EQ(options.config_file, "");
    EXPECT_TRUE(options.interfaces.empty());
    EXPECT_FALSE(options.activate);
    EXPECT_FALSE(options.daemon);
    EXPECT_TRUE(options.set_global);
    EXPECT_EQ(options.traced, TraceUtils::i_am_traced());

    const WDConf defaults;
    EXPECT_TRUE(options.wd.hog_enabled);
    EXPECT_FALSE(options.wd.reload_enabled);
    EXPECT_EQ(options.wd.disabled, options.traced);
    EXPECT_EQ(options.wd.hog_timeout_ms, defaults.hog_timeout_ms);
    EXPECT_EQ(options.wd.kill_timeout_ms, defaults.kill_timeout_ms);
    EXPECT_EQ(options.wd.backoff_multiplier, defaults.backoff_multiplier);
    EXPECT_EQ(options.wd.backoff_max_interval_sec, defaults.backoff_max_interval_sec);
    EXPECT_EQ(options.wd.backoff_reset_interval_sec, defaults.backoff_reset_interval_sec);
}

TEST(CommandLine, EveryOptionReachesItsField) {
    const Options options = parse({"-m",
                                   "km",
                                   "-v",
                                   "debug",
                                   "-l",
                                   "/x%s.log",
                                   "-a",
                                   "--attach",
                                   "eth0",
                                   "--attach=eth1",
                                   "-d",
                                   "--wd_reload",
                                   "--wd_no_hog",
                                   "--wd_disable",
                                   "--wd_hog_timeout",
                                   "59999",
                                   "--wd_kill_timeout",
                                   "7200000",
                                   "--wd_reload_backoff_multiplier",
                                   "1",
                                   "--wd_reload_backoff_max_interval",
                                   "2147483647",
                                   "--wd_reload_backoff_reset_interval",
                                   "1"});
    EXPECT_EQ(options.mode, Options::MODE_KERNEL);
    EXPECT_EQ(options.level, Logger::DEBUG);
    EXPECT_EQ(options.log_file, "/x%s.log");
    EXPECT_TRUE(options.activate);
    EXPECT_EQ(options.interfaces, (std::vector<std::string>{"eth0", "eth1"}));
    EXPECT_TRUE(options.daemon);
    EXPECT_TRUE(options.wd.reload_enabled);
    EXPECT_FALSE(options.wd.hog_enabled);
    EXPECT_TRUE(options.wd.disabled);
    EXPECT_EQ(options.wd.hog_timeout_ms, 59999u);
    EXPECT_EQ(options.wd.kill_timeout_ms, 7200000u);
    EXPECT_EQ(options.wd.backoff_multiplier, 1.0);
    EXPECT_EQ(options.wd.backoff_max_interval_sec, 2147483647u);
    EXPECT_EQ(options.wd.backoff_reset_interval_sec, 1u);
    EXPECT_EQ(parse({"-c", "start.json"}).config_file, "start.json");
}

TEST(CommandLine, ASocketWithoutAColonIsAPath) {
    const Options unix_socket = parse({"-s", "/tmp/x"});
    EXPECT_EQ(unix_socket.transport, Options::TRANSPORT_UNIX);
    EXPECT_EQ(unix_socket.unix_path, "/tmp/x");

    struct {
        const char* text;
        const char* address;
        uint16_t port;
    } const cases[] = {
        {"10.0.0.1:80", "10.0.0.1", 80}, {"1.2.3.4:65535", "1.2.3.4", 65535}, {"1.2.3.4:", "1.2.3.4", 0}};
    for (const auto& c : cases) {
        const Options tcp = parse({"-s", c.text});
        EXPECT_EQ(tcp.transport, Options::TRANSPORT_TCP) << c.text;
        EXPECT_EQ(tcp.tcp_addr, c.address) << c.text;
        EXPECT_EQ(tcp.tcp_port, c.port) << c.text;
    }
}

TEST(CommandLine, RefusesWhatDoesNotFitTogether) {
    const std::string both = "'-c can't be used in conjunction with -a or --attach'";
    expect_refused({"--attach", "eth0"}, "'--attach' is supported only with '--activate'");
    expect_refused({"-c", "f", "--attach", "eth0"}, "'--attach' is supported only with '--activate'");
    expect_refused({"-c", "f", "-a"}, both);
    expect_refused({"-c", "f", "-a", "--attach", "eth0"}, both);
    const char* no_mode[] = {"brumecpd"};
    EXPECT_EXIT(parse_command_line(1, no_mode), testing::ExitedWithCode(2),
                "brumecpd: error: please specify run mode \\(either 'us' or 'km'\\)\n$");
    expect_refused({"-v", "loud"},
                   "option -v: invalid choice: 'loud' \\(choose from 'none', 'error', 'warning', "
                   "'info', 'debug'\\)");
}

TEST(CommandLine, RefusesAddressesAndPortsThatAreNone) {
    struct {
        const char* socket;
        const char* message;
    } const cases[] = {
        {"fe80::1", "invalid IP address: 'fe80::1'"},
        {"host%n:1", "invalid IP address: 'host%n:1'"},
        {":80", "invalid IP address: ':80'"},
        {"1.2.3.4:70000", "invalid port: '70000'"},
        {"1.2.3.4:65536", "invalid port: '65536'"},
        {"1.2.3.4:-1", "invalid port: '-1'"},
        {"1.2.3.4:80x", "invalid port: '80x'"},
        {"1.2.3.4: ", "invalid port: ' '"},
        {"1.2.3.4:4294967376", "invalid port: '4294967376'"},
        {"1.2.3.4:-18446744073709551536", "invalid port: '-18446744073709551536'"},
    };
    for (const auto& c : cases)
        expect_refused({"-s", c.socket}, c.message);
}

TEST(CommandLine, NumbersOfTheWatchdogNeverWrapIntoTheirRange) {
    const std::string order = "wd_kill_timeout must be larger than wd_hog_timeout\\)";
    const std::string hog = "wd_hog_timeout must be positive and lower than 60000";
    const std::string kill = "wd_kill_timeout must be positive and lower than 7200000";
    const std::string multiplier = "wd_reload_backoff_multiplier must be greater or equal to 1";
    const std::string max_interval = "wd_reload_backoff_max_interval must be positive";
    const std::string reset_interval = "wd_reload_backoff_reset_interval must be positive";
    const struct {
        Words words;
        std::string message;
    } cases[] = {
        {{"--wd_kill_timeout", "2000"}, order},
        {{"--wd_kill_timeout", "-1"}, order},
        {{"--wd_hog_timeout", "4294967297"}, order},
        {{"--wd_hog_timeout", "60000", "--wd_kill_timeout", "7200000"}, hog},
        {{"--wd_hog_timeout", "0"}, hog},
        {{"--wd_hog_timeout", "-4294965296"}, hog},
        {{"--wd_hog_timeout", "4294967297", "--wd_kill_timeout", "4294967298"}, hog},
        {{"--wd_kill_timeout", "7200001"}, kill},
        {{"--wd_kill_timeout", "4294970000"}, kill},
        {{"--wd_reload_backoff_multiplier", "0.5"}, multiplier},
        {{"--wd_reload_backoff_max_interval", "0"}, max_interval},
        {{"--wd_reload_backoff_max_interval", "-1"}, max_interval},
        {{"--wd_reload_backoff_max_interval", "4294967297"}, max_interval},
        {{"--wd_reload_backoff_reset_interval", "0"}, reset_interval},
        {{"--wd_reload_backoff_reset_interval", "2147483648"}, reset_interval},
    };
    for (const auto& c : cases)
        expect_refused(c.words, c.message);
}

TEST(CommandLine, NocoreSetsTheLimitForTheProcess) {
    auto core_limits_are_0 = [] {
        parse({"--nocore"});
        rlimit limit{};
        return getrlimit(RLIMIT_CORE, &limit) == 0 && limit.rlim_cur == 0 && limit.rlim_max == 0;
    };
    EXPECT_EXIT(_exit(core_limits_are_0() ? 0 : 1), testing::ExitedWithCode(0), "");
}

TEST(CommandLine, HelpIsLaidOutForTheWidthOfTheTerminal) {
    auto print_help_on_stderr = [] {
        setenv("COLUMNS", "80", 1);
        dup2(STDERR_FILENO, STDOUT_FILENO);
        parse({"--help"});
    };
    const std::string kill_timeout = std::to_string(WDConf().kill_timeout_ms);
    const std::string expected =
        "Usage: brumecpd [options]\n"
        "\n"
        "Options:\n"
        "  -h, --help            show this help message and exit\n"
        "  -s STRING, --socket=STRING\n"
        "                        socket to listen on (e.g. string for Unix socket,\n"
        "                        IP:PORT for TCP)\n"
        "  -v CHOICE, --verbose=CHOICE\n"
        "                        set verbose level('none', 'error', 'info', 'debug'\n"
        "  -m CHOICE, --mode=CHOICE\n"
        "                        kernel mode or userspace mode ('km', 'us')\n"
        "  -d, --daemon          run as daemon\n"
        "  -l STRING, --logfile=STRING\n"
        "                        log file for the session (default: /tmp/brumecpd.log)\n"
        "  -c STRING, --config_file=STRING\n"
        "                        config file containing JSON array with JSON RPC requests\n"
        "                        as its elements. Those requests will be executed after\n"
        "                        RPC server has started. \n"
        "                        NOTE: if flag is not used, server will load config from\n"
        "                        \".config\" file (if exists)\n"
        "                        NOTE: can't be used in conjunction with -a or --attach\n"
        "  -a, --activate        load and activate VELD on startup\n"
        "  --attach=STRING       attach to interface(s)\n"
        "  --nocore              disable core dump\n"
        "  --wd_reload           reloads the process in case of abnormal exit\n"
        "  --wd_no_hog           disables monitoring the process for CPU hogs\n"
        "  --wd_disable          disable any watch dog activity (set implicitly under GDB\n"
        "  --wd_hog_timeout=INT  controls the hog detection timeout in milli-seconds\n"
        "                        (default: 2000 ms)\n"
        "  --wd_kill_timeout=INT\n"
        "                        controls the kill action time in milli-seconds (default:\n"
        "                        " +
        kill_timeout +
        " ms)\n"
        "  --wd_reload_backoff_multiplier=DOUBLE\n"
        "                        controls the reload backoff multiplier factor (default: 2.000000)\n"
        "  --wd_reload_backoff_max_interval=INT\n"
        "                        controls the reload backoff max interval (default: 60 sec)\n"
        "  --wd_reload_backoff_reset_interval=INT\n"
        "                        controls the timeout, after which backoff times get\n"
        "                        reset (default: 30 sec)\n";
    EXPECT_EXIT(print_help_on_stderr(), testing::ExitedWithCode(0), testing::StrEq(expected));
}

}  // namespace
}  // namespace corvo::server
