"""The installed files: how programs and modules were built, and the daemon's unit."""

import json
import os
import platform
import re
import shutil
import struct
import subprocess
import sys
import tempfile
import time
import unittest

import unit_sandbox

sys.path.insert(0, os.path.join(os.environ["KELDANE_SOURCE"], "tests", "end-to-end"))

from daemon_client import DaemonClient, Gone  # noqa: E402

BUILD = os.environ["KELDANE_BUILD"]
SOURCE = os.environ["KELDANE_SOURCE"]
CMAKE = os.environ["CMAKE"]
READELF = os.environ["READELF"]
HARDENED = os.environ["KELDANE_HARDENED"] == "1"

# The first bytes of each function that may be a jump target. The processor's mark for a whole file is set only if the
# distribution's own start-up files have it, too, so the code itself is checked.
ENDBR64 = b"\xf3\x0f\x1e\xfa"

# The items that `systemd-analyze security` must find restricted in the unit. Its other items concern daemons of root, which
# can give up capabilities or have namespaces of their own.
CLOSED = ("NoNewPrivileges", "LockPersonality", "MemoryDenyWriteExecute", "RestrictRealtime", "SystemCallArchitectures",
          "AmbientCapabilities", "KeyringMode", "Delegate", "UMask", "NotifyAccess",
          *(f"RestrictNamespaces_{name}" for name in ("cgroup", "ipc", "mnt", "net", "pid", "user", "uts")),
          *(f"RestrictAddressFamilies_{name}" for name in ("AF_NETLINK", "AF_PACKET", "OTHER")),
          *(f"SystemCallFilter_{name}" for name in ("clock", "cpu_emulation", "debug", "module", "mount", "obsolete",
                                                    "raw_io", "reboot", "swap")))
PATIENCE = 60


def readelf(option, path):
    return subprocess.run([READELF, "-W", option, path], capture_output=True, text=True, check=True).stdout


class Shipping(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.place = tempfile.mkdtemp(prefix="keldane-shipping-")
        cls.addClassCleanup(shutil.rmtree, cls.place, ignore_errors=True)
        subprocess.run([CMAKE, "--install", BUILD], env={**os.environ, "DESTDIR": cls.place}, check=True,
                       stdout=subprocess.DEVNULL)
        cls.binaries = []
        for folder, _, names in os.walk(cls.place):
            for name in names:
                path = os.path.join(folder, name)
                with open(path, "rb") as stream:
                    if not os.path.islink(path) and stream.read(4) == b"\x7fELF":
                        cls.binaries.append(path)

    def each(self):
        for path in self.binaries:
            with self.subTest(os.path.basename(path)):
                yield path

    def only_hardened(self):
        if not HARDENED:
            self.skipTest("this is no release build")

    def installed(self, name):
        found = [path for path in self.binaries if os.path.basename(path) == name]
        self.assertEqual(len(found), 1, name)
        return found[0]

    def test_the_daemon_the_module_and_their_library_are_installed(self):
        for name in ("keldaned", "keldanectl", "keldane-menu"):
            self.assertIn("/bin/", self.installed(name))
        self.assertTrue(any("KeldaneCMM" in path for path in self.binaries))
        self.assertTrue(any("libkeldane-platform.so" in path for path in self.binaries))

    def test_no_segment_can_be_written_and_run_and_the_stack_cannot_be_run(self):
        for path in self.each():
            headers = readelf("-l", path)
            flags = re.findall(r"^ +(LOAD|GNU_STACK) .* ([R ][W ][E ]) 0x", headers, re.MULTILINE)
            self.assertIn("GNU_STACK", [kind for kind, _ in flags])
            self.assertEqual([each for each in flags if "W" in each[1] and "E" in each[1]], [])

    def test_everything_is_bound_at_the_start_and_then_read_only(self):
        self.only_hardened()
        for path in self.each():
            self.assertRegex(readelf("-l", path), r"\bGNU_RELRO\b")
            self.assertRegex(readelf("-d", path), r"\(FLAGS_1\).*\bNOW\b")

    def test_programs_can_be_put_anywhere(self):
        self.only_hardened()
        for path in self.each():
            self.assertRegex(readelf("-h", path), r"Type: +DYN\b")
            flags = readelf("-d", path)
            self.assertEqual(bool(re.search(r"\bPIE\b", flags)), "/bin/" in path)

    def test_stacks_and_calls_of_the_c_library_are_checked(self):
        self.only_hardened()
        fortified = []
        for path in self.each():
            symbols = re.findall(r" UND (\w+)", readelf("--dyn-syms", path))
            self.assertIn("__stack_chk_fail", symbols)
            if any(re.fullmatch(r"__\w+_chk", symbol) for symbol in symbols):
                fortified.append(os.path.basename(path).split(".")[0])
        self.assertIn("libkeldane-platform", fortified)  # not every binary has a call that is checked at run time

    def test_accesses_of_the_cpp_library_are_checked(self):
        self.only_hardened()
        symbols = readelf("--dyn-syms", self.installed("keldaned"))
        self.assertIn("__glibcxx_assert_fail", symbols)  # within a mangled name

    @unittest.skipIf(platform.machine() != "x86_64", "another processor has other marks")
    def test_jumps_lead_to_marked_places(self):
        self.only_hardened()
        for path in self.each():
            with open(path, "rb") as stream:
                self.assertGreater(stream.read().count(ENDBR64), 20)

    def test_no_library_is_looked_for_in_the_build_or_beside_the_caller(self):
        for path in self.each():
            for folders in re.findall(r"\((?:RPATH|RUNPATH)\).*\[(.*)\]", readelf("-d", path)):
                for folder in folders.split(":"):
                    self.assertRegex(folder, r"^(\$ORIGIN|/)")
                    self.assertFalse(folder.startswith((BUILD, SOURCE)), folder)

    def test_the_icon_is_there_in_the_sizes_of_the_theme(self):
        (theme,) = (folder for folder, _, _ in os.walk(self.place) if folder.endswith("/share/icons/hicolor"))
        self.assertTrue(os.path.exists(os.path.join(theme, "scalable", "apps", "keldane.svg")))
        with open(os.path.join(theme, "symbolic", "apps", "keldane-symbolic.svg"), encoding="utf-8") as stream:
            self.assertEqual(len(set(re.findall(r'fill="([^"]+)"', stream.read()))), 1)  # the toolkit replaces this colour
        if not shutil.which("rsvg-convert"):
            self.skipTest("rsvg-convert is not installed")
        for size in (16, 22, 24, 32, 48, 64, 128, 256):
            with open(os.path.join(theme, f"{size}x{size}", "apps", "keldane.png"), "rb") as stream:
                self.assertEqual(struct.unpack(">8x4x4sII", stream.read(24)), (b"IHDR", size, size))

    def unit(self):
        """A copy of the installed unit that names an existing program."""
        found = [os.path.join(folder, name) for folder, _, names in os.walk(self.place) for name in names
                 if name == "keldaned.service" and folder.endswith("/lib/systemd/user")]
        self.assertEqual(len(found), 1)
        with open(found[0], encoding="utf-8") as stream:
            text = stream.read()
        self.assertRegex(text, r"ExecStart=/\S+/bin/keldaned --foreground")
        self.assertNotIn("@CMAKE", text)
        copy = os.path.join(self.enterContext(tempfile.TemporaryDirectory()), "keldaned.service")
        with open(copy, "w", encoding="utf-8") as stream:
            stream.write(re.sub(r"ExecStart=\S+", "ExecStart=" + self.installed("keldaned"), text))
        return copy

    def analyze(self, *arguments):
        runtime = os.path.join(self.place, "run")
        os.makedirs(runtime, exist_ok=True)
        return subprocess.run(["systemd-analyze", *arguments], capture_output=True, text=True, check=False, timeout=60,
                              env={**os.environ, "XDG_RUNTIME_DIR": runtime, "SYSTEMD_PAGER": ""})

    @unittest.skipUnless(shutil.which("systemd-analyze"), "systemd-analyze is not installed")
    def test_the_unit_is_right(self):
        result = self.analyze("verify", "--user", "--man=no", self.unit())
        self.assertEqual((result.returncode, result.stderr), (0, ""))

    @unittest.skipUnless(shutil.which("systemd-analyze"), "systemd-analyze is not installed")
    def test_the_unit_exposes_little(self):
        result = self.analyze("security", "--user", "--offline=true", "--json=short", self.unit())
        self.assertEqual(result.returncode, 0, result.stderr)
        found = {entry["json_field"].removesuffix("_"): entry["set"] for entry in json.loads(result.stdout)}
        self.assertEqual([name for name in CLOSED if not found[name]], [])

    @unittest.skipUnless(unit_sandbox.can_be_applied(), "systemd-analyze or libseccomp is not installed")
    def test_the_daemon_stores_and_restores_under_what_the_unit_forbids(self):
        self.only_hardened()
        place = self.enterContext(tempfile.TemporaryDirectory())
        files, restored = os.path.join(place, "files"), os.path.join(place, "restored")
        path, copy = os.path.join(files, "letter.txt"), os.path.join(restored, "letter.txt")
        os.mkdir(files)
        os.mkdir(restored)
        with open(path, "w", encoding="utf-8") as stream:
            stream.write("Dear reader,")
        os.chmod(path, 0o2750)
        with open(self.unit(), encoding="utf-8") as stream:
            sandbox = unit_sandbox.Sandbox(stream.read())
        with subprocess.Popen([self.installed("keldaned"), "--foreground", "--socket", f"{place}/s", "--store",
                               f"{place}/data/store.sqlite", "--root", files], preexec_fn=sandbox.enter,
                              env={**os.environ, "HOME": place}) as daemon:
            try:
                with self.eventually(lambda: self.connection(f"{place}/s")) as client:
                    client.send("setLowerPriorityMode:", ("c", 1))
                    client.send("addFileToBackup:", files)
                    self.eventually(lambda: (client.ask("dictionaryForPath:", path) or {})["state"] == "Backed up")
                    job = client.ask("restoreFile:toPath:version:priority:", path, restored, ("I", 0), ("I", 0), returns="I")
                    self.assertNotEqual(job, 0)
                    self.eventually(lambda: os.path.exists(copy))
                    self.assertEqual(os.stat(copy).st_mode, os.stat(path).st_mode)
            finally:
                daemon.terminate()
        self.assertEqual(daemon.returncode, 0)

    @staticmethod
    def connection(path):
        try:
            return DaemonClient(path)
        except Gone:
            return None

    def eventually(self, condition):
        """Waits for the condition and returns its first true answer."""
        end = time.monotonic() + PATIENCE
        while not (answer := condition()):
            self.assertLess(time.monotonic(), end, "It did not come about.")
            time.sleep(0.05)
        return answer


if __name__ == "__main__":
    unittest.main()
