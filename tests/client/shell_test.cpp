// The shell, as a script's reader and at a terminal.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "client/run_program.h"
#include "support/daemon.h"

namespace test {
namespace {

using testing::HasSubstr;
using testing::Not;

TEST(Shell, AScriptStopsAtItsFirstFailureWithItsStatus) {
    Daemon daemon;
    const struct {
        const char* script;
        int status;
        const char* complaint;
    } CASES[] = {
        {"# nothing\n\necho 'a b'\nping", 0, ""},
        {"ping\nmt\nshutdown\n", 1, "line 2 failed"},
        {"pnig\nshutdown\n", 2, "(did you mean 'ping'?)"},
        {"echo 'open\nshutdown\n", 2, "left open"},
        {"-s /nonexistent ping\nshutdown\n", 3, "line 1 failed"},
        {"--json shell\nshutdown\n", 2, "this is the shell already"},
    };
    for (const auto& c : CASES) {
        Outcome outcome = brumectl({"shell"}, {.socket = daemon.socket_path(), .input = c.script});
        EXPECT_EQ(outcome.status, c.status) << c.script << outcome.err;
        EXPECT_THAT(outcome.err, HasSubstr(c.complaint));
    }
    EXPECT_TRUE(daemon.running());
}

TEST(Shell, AtATerminalCtrlCDropsTheLineTabCompletesAndCtrlDLeaves) {
    Daemon daemon;
    TempDir home;
    const ProgramSetup setup{
        .socket = daemon.socket_path(), .env = {{"XDG_STATE_HOME", home.path()}}, .terminal = true};
    Program shell({"shell"}, setup);
    ASSERT_TRUE(shell.wait_for_out("brumectl> "));
    // What is typed before the prompt is there again may be lost: the terminal changes its mode meanwhile.
    const auto answered = [&shell](const std::string& typed, const std::string& expected) {
        const size_t from = shell.out().size();
        shell.type(typed);
        return eventually([&] { return shell.out().find(expected, from) != std::string::npos; });
    };
    ASSERT_TRUE(answered("shutdown", "shutdown")) << shell.out();
    ASSERT_TRUE(answered("\x03", "\nbrumectl> ")) << shell.out();
    ASSERT_TRUE(answered("stat\t\n", "state:")) << shell.out();
    ASSERT_TRUE(shell.wait_for_out("GiB\r\nbrumectl> ")) << shell.out();
    ASSERT_TRUE(answered("log -f -n 1\n", "Waiting for messages")) << shell.out();
    ASSERT_TRUE(answered("\x03", "brumectl> ")) << shell.out();
    ASSERT_TRUE(answered("quti\n", "Try --help.\r\nbrumectl> ")) << shell.out();
    EXPECT_NE(shell.out().find("unknown word 'quti'"), std::string::npos);
    shell.type("\x04");
    EXPECT_EQ(shell.wait(), 0);
    EXPECT_TRUE(daemon.running());

    const std::string history = home.file("brumectl/history");
    EXPECT_THAT(read_file(history), HasSubstr("quti"));
    struct stat info = {};
    ASSERT_EQ(stat(history.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777U, 0600U);
}

}  // namespace
}  // namespace test
