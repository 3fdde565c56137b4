#include "server/corvo_server_command_line.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "infra/corvo_version.h"
#include "support/temp_dir.h"
#include "utils/trace_utils.h"

namespace corvo::server {
namespace {

/** Options are separated by blanks; the mode, which is required, is there already. */
Options parse(std::string options) {
    std::vector<const char*> argv = {"/usr/sbin/brumecpd", "--mode=us"};
    for (const char* word = strtok(options.data(), " "); word; word = strtok(nullptr, " "))
        argv.push_back(word);
    return parse_command_line(static_cast<int>(argv.size()), argv.data());
}

auto numbers(const WDConf& wd) {
    return std::tuple(wd.hog_timeout_ms, wd.kill_timeout_ms, wd.backoff_multiplier,
                      wd.backoff_max_interval_sec, wd.backoff_reset_interval_sec);
}

TEST(CommandLine, HasADefaultForAllButTheMode) {
    const Options options = parse("");
    EXPECT_EQ(options.transport, Options::TRANSPORT_TCP);
    EXPECT_EQ(options.tcp_addr, "0.0.0.0");
    EXPECT_EQ(options.tcp_port, 4040);
    EXPECT_EQ(options.mode, Options::MODE_USERSPACE);
    EXPECT_EQ(options.level, Logger::INFO);
    EXPECT_EQ(options.log_file, "/tmp/brumecpd.log");
    EXPECT_TRUE(options.config_file.empty() && options.interfaces.empty());
    EXPECT_FALSE(options.activate || options.daemon || options.wd.reload_enabled);
    EXPECT_TRUE(options.set_global && options.wd.hog_enabled);
    EXPECT_EQ(options.wd.disabled, TraceUtils::i_am_traced());
    EXPECT_EQ(options.traced, TraceUtils::i_am_traced());
    EXPECT_EQ(numbers(options.wd), numbers(WDConf()));
    const uint32_t alone_sec = Version::g_sanitizer ? 60 : 20;
    EXPECT_EQ(options.wd.kill_timeout_ms, 1000 * (Version::g_in_slave_mode ? 7200 : alone_sec));
}

// tests/process tries the other options with the real daemon.
TEST(CommandLine, NumbersMayBeAsLargeAsTheirFieldsHold) {
    const WDConf wd = parse(
                          "--wd_hog_timeout 59999 --wd_kill_timeout 7200000 --wd_reload_backoff_multiplier 1 "
                          "--wd_reload_backoff_max_interval 4294967295 --wd_reload_backoff_reset_interval 1")
                          .wd;
    EXPECT_EQ(numbers(wd), std::tuple(59999u, 7200000u, 1.0, 4294967295u, 1u));
    for (const auto& [socket, port] : {std::pair{"1.2.3.4:65535", 65535}, {"1.2.3.4:", 0}})
        EXPECT_EQ(parse(std::string("-s ") + socket).tcp_port, port);
}

TEST(CommandLine, RefusesWhatDoesNotFitTogetherAndNumbersThatWouldWrap) {
    const std::string hog = "wd_hog_timeout must be positive and lower than 60000";
    const std::string max_interval = "wd_reload_backoff_max_interval must be positive";
    const std::string reset_interval = "wd_reload_backoff_reset_interval must be positive";
    const std::pair<std::string, std::string> cases[] = {
        {"--attach eth0", "'--attach' is supported only with '--activate'"},
        {"-c f -a", "'-c can't be used in conjunction with -a or --attach'"},
        {"-v loud",
         "option -v: invalid choice: 'loud' \\(choose from 'none', 'error', 'warning', 'info', 'debug'\\)"},
        {"-s fe80::1", "invalid IP address: 'fe80::1'"},
        {"-s host%n:1", "invalid IP address: 'host%n:1'"},
        {"-s 1.2.3.4:65536", "invalid port: '65536'"},
        {"-s 1.2.3.4:-1", "invalid port: '-1'"},
        {"-s 1.2.3.4:80x", "invalid port: '80x'"},
        {"-s 1.2.3.4:-18446744073709551536", "invalid port: '-18446744073709551536'"},
        {"--wd_kill_timeout 2000", "wd_kill_timeout must be larger than wd_hog_timeout\\)"},
        {"--wd_hog_timeout 4294967297", "option --wd_hog_timeout: invalid integer value: '4294967297'"},
        {"--wd_hog_timeout 60000 --wd_kill_timeout 7200000", hog},
        {"--wd_hog_timeout 0", hog},
        {"--wd_kill_timeout 7200001", "wd_kill_timeout must be positive and lower than 7200000"},
        {"--wd_reload_backoff_multiplier 0.5", "wd_reload_backoff_multiplier must be greater or equal to 1"},
        {"--wd_reload_backoff_max_interval 0", max_interval},
        {"--wd_reload_backoff_max_interval 4294967297", max_interval},
        {"--wd_reload_backoff_reset_interval 0", reset_interval},
        {"--wd_reload_backoff_reset_interval -2147483649", reset_interval},
    };
    for (const auto& [options, message] : cases)
        EXPECT_EXIT(parse(options), testing::ExitedWithCode(2),
                    "^Usage: brumecpd \\[options\\]\nbrumecpd: error: " + message + "\n$");
    const char* no_mode[] = {"brumecpd"};
    EXPECT_EXIT(parse_command_line(1, no_mode), testing::ExitedWithCode(2),
                "brumecpd: error: please specify run mode \\(either 'us' or 'km'\\)\n$");
}

TEST(CommandLine, HelpIsLaidOutForTheWidthOfTheTerminal) {
    auto print_help_on_stderr = [] {
        setenv("COLUMNS", "80", 1);
        dup2(STDERR_FILENO, STDOUT_FILENO);
        parse("--help");
    };
    std::string expected = test::read_file(HELP_TEXT);
    const std::string place = "@kill_timeout@";
    expected.replace(expected.find(place), place.size(), std::to_string(WDConf().kill_timeout_ms));
    EXPECT_EXIT(print_help_on_stderr(), testing::ExitedWithCode(0), testing::StrEq(expected));
}

}  // namespace
}  // namespace corvo::server
