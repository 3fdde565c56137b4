"""The daemon in kernel mode, with a /proc of the test's own: no machine has this module."""
import os

from harness.case import BARE_METAL, SCRIPTED, SLAVE, DaemonTest
from harness.processes import CLONE_NEWNS, mount, permitted, unshare

MS_BIND, MS_REC, MS_PRIVATE = 4096, 16384, 1 << 18


def expected_failure(module_present):
    """What a build makes of a `load`; None if it succeeds."""
    if BARE_METAL:
        return "Auto SHM configuration is not supported on bare metal mode"
    if SLAVE:
        return None if module_present else "CVDP module is NOT loaded"
    if module_present:
        return "CVDP module is already loaded"
    return "loading '../modules/cvdp.ko' failed: No such file or directory"


class KernelMode(DaemonTest):
    def own_proc(self):
        """For `setup`: a stand-in for /proc, with the real one's entries but a list of modules that the test writes."""
        proc, real = self.folder / "proc", self.folder / "real"
        proc.mkdir()
        real.mkdir()
        for name in os.listdir("/proc"):
            if name != "modules":
                (proc / name).symlink_to(real / name)

        def setup():
            unshare(CLONE_NEWNS)
            mount("none", "/", flags=MS_REC | MS_PRIVATE)
            mount("/proc", real, flags=MS_BIND | MS_REC)
            mount(proc, "/proc", flags=MS_BIND)
        return setup

    def test_the_engine_is_loaded_where_its_module_is(self):
        setup = self.own_proc()
        if not permitted(setup):
            self.skipTest("may not mount")
        engine = self.folder / "engine"
        engine.mkdir()
        (engine / "libcvcp_k.so").symlink_to(SCRIPTED / "libcvcp_u.so")
        # The leak check at the end of a sanitized program can't read this /proc.
        daemon = self.daemon(mode="km", engine=engine, env={"ASAN_OPTIONS": "detect_leaks=0"}, setup=setup)
        self.assertIn("Configured in: 'kernel mode'", daemon.log_text())
        self.assertEqual(daemon.result("status")["mode"], "kernel")
        for present in (False, True):
            (self.folder / "proc/modules").write_text("cvdp 4096 1 - Live 0x0\n" if present else "cvdp2 4096 1\n")
            if expected := expected_failure(present):
                self.assertEqual(daemon.failure("load"), expected)
                continue
            daemon.result("load")
            self.assertEqual(daemon.result("status")["state"], "deactivated")
            daemon.result("unload")
        self.assertEqual(daemon.failure("load", {"shm": {"type": "devmem"}}),
                         "devmem SHM configuration is not supported on kernel mode")
        self.assertEqual(daemon.end(), 0)
