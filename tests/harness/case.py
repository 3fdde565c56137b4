"""What tests of the whole daemon have in common."""
import functools
import pathlib
import shutil
import subprocess
import tempfile
import unittest

from .daemon import BUILD, EMULATOR, OURS, SCRIPTED, Daemon, build_option
from .rpc import free_port

SANITIZED = build_option("BRUMECPD_SANITIZER")
SLAVE = build_option("BRUMECPD_SLAVE_MODE")
BARE_METAL = build_option("BRUMECPD_BARE_METAL")


def load_params(engine=None):
    """A `load` that every build accepts: on bare metal the engine has to be told its shared memory."""
    shm = {"shm": {"type": "devmem", "size": 4096, "addr": "1f000000"}} if BARE_METAL else {}
    return {**shm, **({"path": str(engine)} if engine else {})}


class DaemonTest(unittest.TestCase):
    """Provides a test with a folder and daemons, which end with it."""
    maxDiff = None
    make = Daemon

    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="brumecpd-"))
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        self.daemons = []

    def daemon(self, *args, ready=True, tcp=False, watchdog=False, **more):
        folder = tempfile.mkdtemp(dir=self.folder)
        daemon = self.make(folder, *args, tcp=free_port() if tcp else 0, watchdog=watchdog, **more)
        self.daemons.append(daemon)
        self.addCleanup(daemon.kill)
        if ready:
            self.assertTrue(daemon.alive(60), daemon.log_text() + daemon.err())
        return daemon

    def scripted(self, *args, script="", **more):
        """A daemon with the scripted engine in ../lib."""
        return self.daemon(*args, engine=SCRIPTED, **{"files": {"script": script}, **more})

    @functools.cached_property
    def captures(self):
        """A folder of sample.pcap and a file for each of its flows, such as dns.pcap."""
        subprocess.run([*EMULATOR, BUILD / "tools/make_sample_captures", self.folder / "captures"], check=True,
                       stdout=subprocess.DEVNULL)
        return self.folder / "captures"

    def assertInOrder(self, texts, whole):
        at = 0
        for text in texts:
            found = whole.find(text, at)
            self.assertGreaterEqual(found, 0, f"{text} is missing or out of order in\n{whole}")
            at = found
