"""What clients can do wrong, over both transports: each gets its exact answer, and the daemon goes on as before."""
import json

from harness.case import DaemonTest
from harness.rpc import request

PARSE_ERROR = b'{"error":{"code":-32700,"message":"Bad JSON Format: '
DEEP = b"[" * 50000
NONSENSE = (
    (b"garbage", PARSE_ERROR),
    (DEEP, PARSE_ERROR),
    (b'{"jsonrpc":"2.0","id":1,"method":"echo","params":{"message":' + DEEP, PARSE_ERROR),
    (b"null", b"null\n"),
    (b'{"jsonrpc":"2.0","method":"ping"}', b"null\n"),
    (b'{"jsonrpc":"2.0","id":1,"method":"%s%n%s"}',
     b'{"error":{"code":-32601,"message":"Method \'%s%n%s\' not registered"},"id":1,'),
    (b'{"jsonrpc":"2.0","id":"\xff\xfe","method":"ping"}', b'{"fmt":{"size":'),
)


class HostileClients(DaemonTest):
    def test_they_get_the_exact_answer_to_every_kind_of_nonsense(self):
        for tcp in (False, True):
            daemon = self.daemon(tcp=tcp)
            for message, start in NONSENSE:
                with self.subTest(message[:60], tcp=tcp):
                    self.assertEqual(daemon.raw(message)[:len(start)], start)
            self.assertIn("ts", daemon.result("ping"))
            self.assertEqual(daemon.end(), 0)

    def test_oversized_datagrams_are_answered_and_oversized_lines_served(self):
        daemon = self.daemon()
        self.assertIn(b'"result":{"ts":', daemon.raw(request("ping").rjust(60000)))
        self.assertEqual(daemon.raw(request("ping").rjust(60001)),
                         b'{"error":{"code":-32603,"message":"request size exceeds the maximum allowed size: 60000 [B]"},'
                         b'"id":null,"jsonrpc":"2.0"}\n')
        reply = self.daemon(tcp=True).raw(request("ping", id="x" * 1_000_000))
        self.assertEqual(len(json.loads(reply)["id"]), 1_000_000)
