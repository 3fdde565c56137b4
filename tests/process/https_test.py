"""Samples over TLS, to a peer that proves who it is and to those that don't."""
import http.server
import ssl
import subprocess
import threading

from harness.case import OURS, DaemonTest
from harness.processes import eventually


class Https(DaemonTest):
    def test_samples_go_to_a_trusted_peer_of_the_right_name_alone(self):
        certificate, requests = self.folder / "certificate", []
        subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-subj",
                        "/CN=localhost", "-addext", "subjectAltName=DNS:localhost", "-keyout", certificate, "-out", certificate],
                       check=True, capture_output=True)

        class Peer(http.server.BaseHTTPRequestHandler):
            def do_POST(self):
                requests.append((self.path, self.rfile.read(int(self.headers["Content-Length"]))))
                self.send_response(200)
                self.end_headers()
        peer = http.server.HTTPServer(("127.0.0.1", 0), Peer)
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(certificate)
        peer.socket = context.wrap_socket(peer.socket, server_side=True)
        threading.Thread(target=peer.serve_forever).start()
        self.addCleanup(peer.server_close)
        self.addCleanup(peer.shutdown)

        def ask(cmd, **more):
            return daemon.result("collect", {"cmd": cmd, "component": "flows", **more})

        def exporter():
            return ask("ls")["collect"]["exporter"]
        trust = {"SSL_CERT_FILE": str(certificate)}
        for env, server, error in (({}, "localhost", "self-signed certificate"), (trust, "127.0.0.1", "127.0.0.1"),
                                   (trust, "localhost", "")):
            daemon = self.daemon("-a", engine=OURS, env=env)
            ask("set_exporter", socket={"type": "https", "server": server, "port": peer.server_port, "path": "/in"})
            ask("set_interval", interval=100)
            ask("enable")
            self.assertEqual(requests, [])
            self.assertTrue(eventually(lambda: exporter()["failed" if error else "sent"]), exporter())
            self.assertIn(error, exporter()["last_error"] if error else "")
            self.assertEqual(daemon.end(), 0)
        self.assertEqual(requests[0][0], "/in")
        self.assertIn(b'"collector":"flows"', requests[0][1])
