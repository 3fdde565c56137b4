"""The shell, as a script's reader and at a terminal."""
from harness.case import DaemonTest
from harness.program import ANY, Program, ProgramChecks, has


class Shell(ProgramChecks, DaemonTest):
    def test_a_script_stops_at_its_first_failure_with_its_status(self):
        daemon = self.daemon()
        for status, out, err, script in (
                (0, ANY, "", "# nothing\n\necho 'a b'\nping"),
                (1, ANY, has("line 2 failed"), "ping\nmt\nshutdown\n"),
                (2, ANY, has("(did you mean 'ping'?)"), "pnig\nshutdown\n"),
                *((2, ANY, has("left open"), f"echo {end}\nshutdown\n") for end in ("'open", '"open', "open\\")),
                (3, ANY, has("line 1 failed"), "-s /nonexistent ping\nshutdown\n"),
                (2, ANY, has("this is the shell already"), "--json shell\nshutdown\n"),
                (0, (has("Usage: quit"), has("  evidence ls\n")), "", "help quit\nevidence ?\n quit # now\nshutdown\n"),
                (0, "", "", "exit\nshutdown\n")):
            self.expect(["shell"], status, out, err, socket=daemon.path, input=script)
        self.assertTrue(daemon.running())

    def test_at_a_terminal_ctrl_c_drops_the_line_tab_completes_and_ctrl_d_leaves(self):
        daemon = self.daemon()
        with Program("shell", socket=daemon.path, env={"XDG_STATE_HOME": str(self.folder)}, terminal=True) as shell:
            self.assertTrue(shell.wait_for_out("type help for the words, quit or Ctrl-D to leave\r\nbrumectl> "))
            for typed, *answers in (
                    # What is typed before the prompt is there again may be lost: the terminal changes its mode meanwhile.
                    ("shutdown", "shutdown"),
                    ("\x03", "\nbrumectl> "),
                    ("stat\t\n", "state:", "GiB\r\nbrumectl> "),
                    ("log --level info --comp rpc-s\t\n", "erver", "ok\r\nbrumectl> "),
                    ("log -f -n 1\n", "verbosity was changed"),
                    ("\x03", "brumectl> "),
                    ("quti\n", "Try: help\r\nbrumectl> ")):
                start = len(shell.out())
                shell.type(typed)
                for answer in answers:
                    self.assertTrue(shell.wait_for_out(answer, start), shell.out())
            self.assertIn("unknown command 'quti'", shell.out())
            shell.type("\x04")
            self.assertEqual(shell.wait(), 0)
        self.assertTrue(daemon.running())
        history = self.folder / "brumectl/history"
        self.assertIn("quti", history.read_text())
        self.assertEqual(history.stat().st_mode & 0o777, 0o600)
