// The shell, as a script's reader and at a terminal.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "client/run_program.h"
#include "support/daemon.h"

namespace test {
namespace {

using testing::_;
using testing::AllOf;
using testing::HasSubstr;

TEST(Shell, AScriptStopsAtItsFirstFailureWithItsStatus) {
    Daemon daemon;
    expect_steps(
        {
            {{"shell"}, 0, _, "", "# nothing\n\necho 'a b'\nping"},
            {{"shell"}, 1, _, HasSubstr("line 2 failed"), "ping\nmt\nshutdown\n"},
            {{"shell"}, 2, _, HasSubstr("(did you mean 'ping'?)"), "pnig\nshutdown\n"},
            {{"shell"}, 2, _, HasSubstr("left open"), "echo 'open\nshutdown\n"},
            {{"shell"}, 3, _, HasSubstr("line 1 failed"), "-s /nonexistent ping\nshutdown\n"},
            {{"shell"}, 2, _, HasSubstr("this is the shell already"), "--json shell\nshutdown\n"},
            {{"shell"},
             0,
             AllOf(HasSubstr("Usage: quit"), HasSubstr("  evidence ls\n")),
             "",
             "help quit\nevidence ?\n quit # now\nshutdown\n"},
            {{"shell"}, 0, "", "", "exit\nshutdown\n"},
        },
        {.socket = daemon.socket_path()});
    EXPECT_TRUE(daemon.running());
}

TEST(Shell, AtATerminalCtrlCDropsTheLineTabCompletesAndCtrlDLeaves) {
    Daemon daemon;
    TempDir home;
    Program shell(
        {"shell"},
        {.socket = daemon.socket_path(), .env = {{"XDG_STATE_HOME", home.path()}}, .terminal = true});
    ASSERT_TRUE(shell.wait_for_out("type help for the words, quit or Ctrl-D to leave\r\nbrumectl> "));
    // What is typed before the prompt is there again may be lost: the terminal changes its mode meanwhile.
    const auto answered = [&shell](const std::string& typed, const std::string& expected) {
        const size_t from = shell.out().size();
        shell.type(typed);
        return shell.wait_for_out(expected, from);
    };
    ASSERT_TRUE(answered("shutdown", "shutdown")) << shell.out();
    ASSERT_TRUE(answered("\x03", "\nbrumectl> ")) << shell.out();
    ASSERT_TRUE(answered("stat\t\n", "state:")) << shell.out();
    ASSERT_TRUE(shell.wait_for_out("GiB\r\nbrumectl> ")) << shell.out();
    ASSERT_TRUE(answered("log --level info --comp rpc-s\t\n", "erver")) << shell.out();
    ASSERT_TRUE(shell.wait_for_out("ok\r\nbrumectl> ")) << shell.out();
    ASSERT_TRUE(answered("log -f -n 1\n", "verbosity was changed")) << shell.out();
    ASSERT_TRUE(answered("\x03", "brumectl> ")) << shell.out();
    ASSERT_TRUE(answered("quti\n", "Try: help\r\nbrumectl> ")) << shell.out();
    EXPECT_THAT(shell.out(), HasSubstr("unknown word 'quti'"));
    shell.type("\x04");
    EXPECT_EQ(shell.wait(), 0);
    EXPECT_TRUE(daemon.running());

    const std::string history = home.file("brumectl/history");
    EXPECT_THAT(read_file(history), HasSubstr("quti"));
    EXPECT_EQ(std::filesystem::status(history).permissions(), std::filesystem::perms(0600));
}

}  // namespace
}  // namespace test
