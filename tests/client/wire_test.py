"""A daemon's answers, above all those that no good daemon gives."""
import contextlib
import json
import os
import re
import signal
import socket

from harness.case import OURS, DaemonTest
from harness.processes import CLONE_NEWNET, eventually, permitted, unshare
from harness.program import Program, ProgramChecks, brumectl, has
from harness.rpc import free_port

SUBSCRIBES = '"op":"add"'


class Peer(socket.socket):
    """A socket where the daemon's would be."""

    def __init__(self, path):
        super().__init__(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.path = str(path)
        self.bind(self.path)
        self.settimeout(20)

    def close(self):
        super().close()
        with contextlib.suppress(OSError):
            os.unlink(self.path)

    def receive(self):
        message, self.sender = self.recvfrom(65536)
        return message.decode()

    def answer(self, text):
        with contextlib.suppress(OSError):  # who asked may have given up
            self.sendto(text.encode(), self.sender)

    def answer_next(self, text):
        """Answers the next request and returns it."""
        request = self.receive()
        self.answer(text)
        return request

    def serve_until(self, last):
        """Answers as a daemon would, up to a request with `last` in it."""
        while last not in (request := self.receive()):
            result = {"notif": {"log": []}} if '"log"' in request else {"pid": 5, "ls": [{"name": "x"}]}
            self.answer(json.dumps({"jsonrpc": "2.0", "id": json.loads(request)["id"], "result": result}))


def result(value):
    return json.dumps({"jsonrpc": "2.0", "result": value})


def refusal(text):
    return json.dumps({"jsonrpc": "2.0", "error": {"code": -32000, "specific_err": text}})


def build_log(attributes):
    return result({"log": [f"[1] - [server][INFO ] - Attributes:     {attributes}", "more"]})


def packed(size, base64):
    return f'{{"jsonrpc":"2.0","id":1,"fmt":{{"type":"lz4","size":{size}}},"result":"{base64}"}}\n'


SILENT = result({"log": []})
LOAD = '[{"jsonrpc":"2.0","id":1,"method":"load"}]'
BUILDS = (
    ([build_log("optimized")], "standalone daemon, as the one at"),
    ([build_log("debug, asan, slave")], "daemon in slave mode, as the one at"),
    ([build_log("debug, bare metal, slave")], "daemon in slave mode, for bare metal, as the one at"),
    ([SILENT, refusal("'attach' not supported in slave mode")], "daemon in slave mode, as the one at"),
    ([SILENT, refusal("field 'intf' is missing")], "standalone daemon, as the one at"),
    ([SILENT, refusal("what?")], "as the one packaged with this program is"),
    (["nonsense"], "as the one packaged with this program is"),
)
UNBELIEVABLE = (
    ("", "no JSON"),
    ("hello", "no JSON"),
    ('{"jsonrpc":"2.0","id":1,"result":{"ts")', "no JSON"),
    ("[" * 5000, "no JSON"),
    ("[]", "no JSON-RPC 2.0 response"),
    ('{"id":1,"result":{}}', "no JSON-RPC 2.0 response"),
    ('{"jsonrpc":"2.0","id":1,"error":5}', "no JSON-RPC 2.0 response"),
    ('{"jsonrpc":"2.0","id":1,"error":{"code":"x","message":7}}', "an error without a text"),
    ('{"jsonrpc":"2.0","id":null,"error":{"code":-32700,"message":"Bad"}}', "Bad"),
    (r'{"jsonrpc":"2.0","id":1,"error":{"specific_err":"own \u001b[2Jwords","message":"m"}}', r"own \x1b[2Jwords"),
    (packed("18446744073709551615", "AAAA"), "lies about its size"),
    (packed("-1", "AAAA"), "no size"),
    (packed("100", ""), "damaged"),
    (packed("100", "AAAA"), "damaged"),
    (packed("4", "MG5vCg=="), "damaged"),
    (packed("3", "MHtdCg=="), "no JSON"),
)


SENT = (
    (["call", "echo", "message=5"], {"message": "5"}),
    (["mt", "--depth", "255"], {"depth": 255}),
    (["load", "--type", "auto"], {"shm": {"type": "auto"}}),
    (["health", "configure", '{"a":[1]}'], {"cmd": "configure", "json": {"a": [1]}}),
    (["call", "health", "cmd=show", "verbose=yes"], {"cmd": "show", "verbose": "yes"}),
    # No JSON, or not all of it.
    (["call", "x", "a=10.0.0.1", "b=2026-11-24", "c=12ab", 'd="a" b', "e=1//a", "f={}x", "g=tru"],
     {"a": "10.0.0.1", "b": "2026-11-24", "c": "12ab", "d": '"a" b', "e": "1//a", "f": "{}x", "g": "tru"}),
    (["call", "x", "a= 5 ", 'b.c={"a":[1]}'], {"a": 5, "b": {"c": {"a": [1]}}}),
    (["shell"], {"message": ""}, "echo ''"),
    (["shell"], {"a": 'b "c', "d": 'e"f\\n', "g": "h i", "k": "l#m"},
     r"""call x a='b "c'  d="e\"f\n" """ "\tg=h\\ i k=l#m # n 'o"),
)


class Wire(ProgramChecks, DaemonTest):
    def peer(self):
        peer = Peer(self.folder / "s")
        self.addCleanup(peer.close)
        return peer

    def test_a_daemon_that_ends_with_the_request_in_hand_is_missed_long_before_the_timeout(self):
        with self.peer() as peer, Program("--timeout", "60", "ping", socket=peer.path) as program:
            self.assertIn("ping", peer.receive())
            peer.close()
            self.assertEqual(program.wait(), 3, program.err())

    def test_a_daemon_is_asked_for_its_build_and_one_that_doesnt_tell_is_taken_for_the_packaged_one(self):
        for replies, build in BUILDS:
            with self.subTest(replies), self.peer() as peer, Program("check", "-", socket=peer.path, input=LOAD) as program:
                for reply in [result({}), *replies]:  # the first is for `status`
                    peer.answer_next(reply)
                status = program.wait()
                self.assertIn("Judged for a ", program.err())
                self.assertIn(build, program.err())
                bare = "for bare metal" in program.err()
                refused = "load: 'shm.type' is refused by a daemon for bare metal" in program.out()
                self.assertEqual((status, refused), (bare, bare))

    def test_what_is_typed_is_sent_as_what_the_method_takes(self):
        for words, params, *script in SENT:
            with self.subTest(words), self.peer() as peer, Program(*words, socket=peer.path, input="".join(script)):
                self.assertEqual(json.loads(peer.receive())["params"], params)

    def test_a_reply_that_cant_be_believed_is_an_error_that_says_why(self):
        for reply, complaint in UNBELIEVABLE:
            with self.subTest(reply[:100]), self.peer() as peer, Program("ping", socket=peer.path) as program:
                self.assertIn('"method":"ping"', peer.answer_next(reply))
                self.assertEqual(program.wait(), 1)
                self.assertIn(complaint, program.err())
                self.assertEqual(program.out(), "")

    def test_an_answer_to_another_request_is_passed_over(self):
        with self.peer() as peer, Program("call", "x", socket=peer.path) as program:
            peer.answer_next('{"jsonrpc":"2.0","id":7,"result":"late"}')
            peer.answer('{"jsonrpc":"2.0","id":1,"result":"mine"}')
            self.assertEqual((program.wait(), program.out()), (0, "mine\n"))

    def test_no_answer_reaches_a_terminal_with_its_control_characters(self):
        for option, shown in (("--json", r"a\u001b[2Jb"), ("--timeout=20", r"a\x1b[2Jb")):
            with self.peer() as peer, Program(option, "call", "x", socket=peer.path, terminal=True) as program:
                peer.answer_next('{"jsonrpc":"2.0","id":1,"result":"a\x1b[2Jb"}\n')
                self.assertTrue(program.wait_for_out(shown), option)
                self.assertEqual(program.wait(), 0)

    def test_a_configuration_is_played_to_a_daemon_that_tells_nothing_of_itself(self):
        with self.peer() as peer, Program("run", "-", socket=peer.path, input="[]") as program:
            for value in (5, {}, 5, {}):
                peer.answer_next(result(value))
            self.assertEqual(program.wait(), 0, program.err())

    def test_a_follower_whose_daemon_goes_while_it_subscribes_begins_anew_and_leaves_nothing_behind(self):
        place, run = self.folder / "place", self.folder / "run"
        place.mkdir()
        run.mkdir()
        # Without a daemon at the start, it would end at once.
        with Peer(place / "s") as first, Program("--timeout", "1", "events", "-f", socket=first.path,
                                                 env={"XDG_RUNTIME_DIR": str(run)}) as follower:
            def goes_at(peer, request):
                told = len(follower.err())
                peer.serve_until(request)
                peer.close()
                self.assertTrue(eventually(lambda: "waiting for it" in follower.err()[told:]))
                self.assertEqual([*place.iterdir(), *run.iterdir()], [], request)
            goes_at(first, SUBSCRIBES)
            with Peer(place / "s") as peer:
                peer.serve_until(SUBSCRIBES)
                self.assertTrue(follower.wait_for_err("; waiting\n"), "for one that is there, but silent")
                goes_at(peer, '"cmd":"log"')
            with Peer(place / "s") as peer:
                peer.serve_until(SUBSCRIBES)
                self.assertTrue(os.listdir(run))
                self.assertEqual(follower.end(signal.SIGINT), 128 + signal.SIGINT)
                self.assertEqual(os.listdir(run), [])

    def test_a_followers_socket_hears_the_daemons_user_alone_and_gives_nothing_away(self):
        if os.geteuid() != 0:
            self.skipTest("only root can send as somebody else")
        run, user = self.folder / "run", 65534
        run.mkdir()
        self.folder.chmod(0o711)
        with self.peer() as peer:
            os.chown(peer.path, user, -1)
            with Program("events", "-f", socket=peer.path, env={"XDG_RUNTIME_DIR": str(run)}) as follower:
                peer.serve_until(SUBSCRIBES)
                own, = run.iterdir()
                self.assertEqual(own.stat().st_mode & 0o7777, 0o622)
                self.assertEqual(own.stat().st_uid, 0, "its owner could be changed by name alone")
                for sender, event in ((user, 1), (1234, 2), (0, 2)):
                    def send():
                        os.setresuid(*[sender] * 3)
                        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as s:
                            notice = {"id": event, "sev": "info", "name": f"from {sender}"}
                            s.sendto(json.dumps(notice).encode(), str(own))
                    self.assertTrue(permitted(send), sender)
                peer.answer(result({}))
                peer.answer_next(result({"notif": {"log": []}}))
                self.assertTrue(follower.wait_for_out("from 0\n"))
                self.assertEqual(re.findall("from [0-9]+", follower.out()), [f"from {user}", "from 0"])

    def test_a_push_that_succeeded_does_so_though_the_daemon_goes_before_the_remarks(self):
        with self.peer() as peer, Program("push_pcap", "--buffer", "AA==", socket=peer.path) as program:
            peer.answer_next(refusal("no such method"))
            request = json.loads(peer.answer_next(result({"total": 0})))
            peer.close()
            self.assertEqual(request["params"], {"type": "buffer", "buffer": "AA==", "reset": False})
            self.assertEqual((program.wait(), program.err()), (0, ""))

    def test_silence_and_absence_have_statuses_of_their_own(self):
        peer = self.peer()
        self.expect(["-s", peer.path, "--timeout", "0.05", "ping"], 4, "", has("no answer from "))
        self.expect(["-s", "/nonexistent/socket", "ping"], 3, "", has("no daemon at "))
        self.expect(["-s", f"127.0.0.1:{free_port()}", "ping"], 3, "", has("no daemon at "))
        with Program("ping", socket=peer.path) as waiting:
            peer.receive()
            peer.receive()
            self.assertEqual(waiting.end(signal.SIGINT), 128 + signal.SIGINT, "as a shell expects it")

    def test_a_request_that_no_datagram_holds_is_never_sent(self):
        peer = self.peer()
        self.expect(["echo", "x" * 61000], 1, "", has("a Unix socket takes 60000"), socket=peer.path)
        peer.setblocking(False)
        with self.assertRaises(BlockingIOError):
            peer.recv(1)

    def test_a_connection_that_ends_too_early_is_an_error(self):
        for piece in (b"", b'{"jsonrpc":"2.0","id":1,"resu'):
            with self.subTest(piece), socket.create_server(("127.0.0.1", 0)) as listener, \
                    Program("ping", socket=f"127.0.0.1:{listener.getsockname()[1]}") as program:
                with listener.accept()[0] as client:
                    self.assertTrue(client.recv(512))
                    client.sendall(piece)
                self.assertEqual(program.wait(), 1)

    def test_a_large_result_comes_packed_and_is_shown_plain(self):
        daemon = self.daemon("-a", engine=OURS, tcp=True)
        reply = json.loads(brumectl("--json", "push_pcap", self.captures / "sample.pcap", "--extended", "--reset",
                                    socket=f"127.0.0.1:{daemon.tcp}")[1])
        self.assertEqual(reply["fmt"]["type"], "plain")
        self.assertGreater(reply["fmt"]["size"], 4096, "or it wasn't packed")
        self.assertGreater(len(reply["result"]["pkts"]), 10)


class OwnSocket(ProgramChecks, DaemonTest):
    def test_it_is_a_path_where_the_daemon_is_in_another_network_and_goes_with_the_program(self):
        if not permitted(lambda: unshare(CLONE_NEWNET)):
            self.skipTest("takes a network namespace")
        daemon = self.daemon(setup=lambda: unshare(CLONE_NEWNET), ready=False)
        self.assertTrue(daemon.wait_for_log("Waiting for messages"))
        # Other tests' daemons, which come and go, have sockets of the same name.
        alias = daemon.folder / "elsewhere"
        alias.symlink_to(daemon.path)

        def ours():
            return len(list(daemon.folder.glob("brumectl-socket-*")))
        killed_early = daemon.folder / "brumectl-socket-0"
        killed_early.mkdir()
        os.utime(killed_early, (0, 0))
        daemon.signal(signal.SIGSTOP)
        with Program("ping", socket=str(alias)) as program:
            self.assertTrue(eventually(lambda: list(daemon.folder.glob("brumectl-socket-*/s"))))
            program.end(signal.SIGKILL)
        daemon.signal(signal.SIGCONT)
        self.expect(["ping"], 0, has("answer from"), socket=str(alias))
        self.assertEqual(ours(), 0, "what was killed left something behind")
