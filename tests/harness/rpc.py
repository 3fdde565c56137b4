"""The daemon's two transports, as a client sees them."""
import json
import socket


def request(method, params=None, id=1, **more):
    message = {"jsonrpc": "2.0", "id": id, "method": method, **more}
    if params is not None:
        message["params"] = params
    return json.dumps(message, separators=(",", ":"), sort_keys=True).encode()


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def unix_client(path, seconds=20):
    s = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
    s.bind("")
    s.settimeout(seconds)
    try:
        s.connect(path)
    except OSError:
        s.close()
        raise
    return s


def ask_unix(path, message, seconds):
    with unix_client(path, seconds) as s:
        s.send(message)
        return s.recv(16 << 20)


def ask_tcp(port, message, seconds=20):
    """All that comes back until the connection is closed; `message` goes as it is."""
    with socket.create_connection(("127.0.0.1", port), timeout=seconds) as s:
        s.sendall(message)
        return b"".join(iter(lambda: s.recv(1 << 20), b""))
