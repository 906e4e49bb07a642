"""The common parts of all end-to-end tests: a folder for each test, a copy of the bundle, and the host."""

import json
import os
import plistlib
import shutil
import signal
import subprocess
import tempfile
import time
import unittest

from daemon_client import listens
from recording_daemon import RecordingDaemon, node

MENU = os.environ["KELDANE_MENU"]
DAEMON = os.environ["KELDANED"]
BUNDLE = os.environ["KELDANE_BUNDLE"]

# Waiting for a process takes at most this number of seconds; an instrumented build is slow.
PATIENCE = 60

ATTRIBUTE_SECTION, ATTRIBUTE_PARENT = 128, 4
NO_COMMANDS = ["-", "-", "Open Keldane Preferences…"]


class Case(unittest.TestCase):
    """A test with a folder, a home and a bundle of its own, whose DaemonPath is `self.socket`."""

    maxDiff = None

    def setUp(self):
        self.place = tempfile.mkdtemp(prefix="keldane-e2e-")
        self.addCleanup(shutil.rmtree, self.place, ignore_errors=True)
        self.socket = os.path.join(self.place, "daemon.sock")
        self.bundle = os.path.join(self.place, "Keldane.plugin")
        shutil.copytree(BUNDLE, self.bundle)
        self.edit_info(DaemonPath=self.socket)
        self.environment = {"PATH": os.environ["PATH"], "HOME": self.place, "LC_ALL": "C.UTF-8",
                            "XDG_CONFIG_HOME": os.path.join(self.place, "config"),
                            "XDG_DATA_HOME": os.path.join(self.place, "data"), "XDG_DATA_DIRS": self.place}
        for name in ("ASAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS"):
            if name in os.environ:
                self.environment[name] = os.environ[name]

    # --- Files ---

    def file(self, name, content="content"):
        path = os.path.join(self.place, "files", name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w", encoding="utf-8") as stream:
            stream.write(content)
        return path

    def folder(self, name):
        path = os.path.join(self.place, "files", name)
        os.makedirs(path, exist_ok=True)
        return path

    @property
    def info_file(self):
        return os.path.join(self.bundle, "Contents", "Info.plist")

    def edit_info(self, **entries):
        """Sets entries of the bundle's information dictionary; None removes one."""
        with open(self.info_file, "rb") as stream:
            info = plistlib.load(stream)
        for key, value in entries.items():
            info[key] = value
        with open(self.info_file, "wb") as stream:
            plistlib.dump({key: value for key, value in info.items() if value is not None}, stream)

    # --- The daemon ---

    def daemon(self, answers=None, **options):
        """Starts a recording daemon; `answers` may be the simple flags of every path."""
        if isinstance(answers, int):
            flags = answers
            answers = {"dictionaryForPath:withDirSizes:":
                       lambda path, _: node(path, flags, os.path.isdir(path))}
        daemon = RecordingDaemon(self.socket, answers, **options)
        self.addCleanup(daemon.stop)
        return daemon

    # --- The host ---

    def run_menu(self, *arguments, **options):
        return subprocess.run([MENU, "--bundle", self.bundle, *arguments], env=self.environment, capture_output=True,
                              timeout=PATIENCE, check=False, **options)

    def menu(self, *arguments, status=0):
        """The answer of `show` or `choose` in JSON."""
        result = self.run_menu("--json", *arguments)
        self.assertEqual(result.returncode, status, result.stderr.decode(errors="replace"))
        return json.loads(result.stdout)

    def show(self, *paths, options=()):
        return self.menu(*options, "show", *paths)["menu"]

    def titles(self, *paths, options=()):
        menu = self.show(*paths, options=options)
        return None if menu is None else [item["title"] for item in menu["items"]]

    def script(self, *steps, status=0, options=()):
        """The answers to the steps of a script."""
        text = "".join((step if isinstance(step, str) else json.dumps(step)) + "\n" for step in steps)
        result = self.run_menu(*options, "script", input=text.encode())
        self.assertEqual(result.returncode, status, result.stderr.decode(errors="replace"))
        return [json.loads(line) for line in result.stdout.splitlines()]

    # --- Waiting ---

    def eventually(self, condition, what="it"):
        """Waits for the condition and returns its first true answer."""
        end = time.monotonic() + PATIENCE
        while not (answer := condition()):
            self.assertLess(time.monotonic(), end, f"{what} did not come about")
            time.sleep(0.02)
        return answer


class Keldaned:
    """The real daemon on the test's socket."""

    def __init__(self, case, *options):
        self.case = case
        self.command = [DAEMON, "--foreground", "--socket", case.socket, "--store", os.path.join(case.place, "store"),
                        "--root", os.path.join(case.place, "files"), *options]
        self.process = None
        case.addCleanup(self.kill)
        self.start()

    def start(self):
        if os.path.exists(self.case.socket):
            os.unlink(self.case.socket)
        self.process = subprocess.Popen(self.command, env=self.case.environment, stderr=subprocess.DEVNULL)
        self.case.eventually(lambda: listens(self.case.socket), "a daemon that listens")
        self.case.eventually(lambda: self.case.show(self.case.folder(".")) is not None, "the daemon's answer")

    def kill(self):
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGKILL)
        self.process.wait(PATIENCE)

    def terminate(self):
        self.process.terminate()
        return self.process.wait(PATIENCE)
