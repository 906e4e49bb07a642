"""keldane-conformance against this project's daemon, plug-in and keldanectl, as a user would run it."""

import contextlib
import json
import os
import re
import shlex
import shutil
import signal
import sqlite3
import subprocess
import sys
import tempfile
import time
import unittest

SOURCE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")
sys.path.insert(0, os.path.join(SOURCE, "conformance"))

from daemon_client import listens  # noqa: E402
from keldane_conformance.frames import Link  # noqa: E402

KIT = os.path.join(SOURCE, "conformance", "keldane-conformance")
DAEMON, MENU, CTL, BUNDLE = (os.environ[name] for name in ("KELDANED", "KELDANE_MENU", "KELDANECTL", "KELDANE_BUNDLE"))
PATIENCE = 60


def kit(*options, status=0, **more):
    """Runs the kit; its output."""
    result = subprocess.run([sys.executable, "-B", KIT, *options], capture_output=True, text=True, check=False, **more)
    if result.returncode != status:
        raise AssertionError(f"status {result.returncode}\n{result.stdout}{result.stderr}")
    return result.stdout


class Place(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.place = tempfile.mkdtemp(prefix="keldane-kit-")
        self.addCleanup(shutil.rmtree, self.place, ignore_errors=True)
        os.chmod(self.place, 0o711)  # another user can reach the socket and nothing else
        self.socket = os.path.join(self.place, "socket")
        self.files = os.path.join(self.place, "files")
        os.mkdir(self.files)

    def start(self):
        """The daemon, until the end of the test, with whatever the kit starts in its place."""
        environment = {**os.environ, "HOME": self.place, "XDG_DATA_HOME": os.path.join(self.place, "data")}
        self.command = [DAEMON, "--foreground", "--socket", self.socket, "--store", os.path.join(self.place, "store"),
                        "--root", self.files]
        process = subprocess.Popen(self.command, env=environment, stderr=subprocess.DEVNULL)
        self.addCleanup(self.stop, process)
        end = time.monotonic() + PATIENCE
        while not (listens(self.socket) and listens(self.socket + ".owner")):
            self.assertLess(time.monotonic(), end, "the daemon did not come up")
            time.sleep(0.02)

    def stop(self, process):
        """Ends the daemon and the one that was started again."""
        process.terminate()
        process.wait(PATIENCE)
        for number in filter(str.isdigit, os.listdir("/proc")):
            try:
                with open(f"/proc/{number}/cmdline", "rb") as stream:
                    if self.socket.encode() in stream.read().split(b"\0"):
                        os.kill(int(number), signal.SIGTERM)
            except OSError:
                pass


class Daemon(Place):
    def test_the_daemon_passes_everything(self):
        self.start()
        restart = shlex.join(["env", f"HOME={self.place}", f"XDG_DATA_HOME={self.place}/data", *self.command])
        answer = json.loads(kit("daemon", self.socket, "--json", "--destructive", "--scratch", self.files, "--restart", restart))
        self.assertGreater(len(answer["checks"]), 80)
        skipped = {check["name"] for check in answer["checks"] if check["status"] == "skipped"}
        self.assertLessEqual(skipped, {"others/reading", "others/changing"})  # for root only, and where others can connect
        self.assertEqual(os.listdir(self.files), [])

    def test_reading_changes_nothing(self):
        self.start()
        with Link(self.socket, PATIENCE) as link:
            link.call("addFileToBackup:", self.files)
            link.call("setFileTypeToggle:toggle:", ".tmp", 7)
            link.call("setPausedMinutes:", 60)
            link.call("setValueForProfileKey:withString:", "SkinId", "plain")
            link.ask("daemonState")
        before = self.everything()
        self.assertTrue(all(before.values()), before)
        output = kit("daemon", self.socket)
        self.assertIn("TAP version 13\n", output)
        self.assertNotIn("not ok", output)
        self.assertEqual(self.everything(), before)

    def everything(self):
        """What clients can change, as the store keeps it. When the daemon did something last is its own."""
        with contextlib.closing(sqlite3.connect(f"file:{self.place}/store?mode=ro", uri=True)) as store:
            return {name: sorted(row for row in store.execute(f"SELECT * FROM {name}") if not str(row[0]).startswith("last"))
                    for name in ("rules", "types", "settings", "profile")}


class Clients(unittest.TestCase):
    def test_the_plug_in_passes(self):
        kit("client", "--profile", "menu", "--profile", "full", "--bundle", BUNDLE, "--", MENU, "--json", "--bundle", "{bundle}")

    def test_the_menu_reads_as_text_too(self):
        kit("client", "--profile", "menu", "--only", "menu/flags", "--bundle", BUNDLE, "--", MENU, "--bundle", "{bundle}")

    def test_keldanectl_passes(self):
        kit("client", "--profile", "keldanectl", "--profile", "full", "--bundle", BUNDLE, "--", CTL, "--bundle", "{bundle}")

    def test_a_client_that_follows_passes(self):
        """What the preferences do with the state, keldanectl does without a window."""
        kit("client", "--profile", "preferences", "--only", "follow", "--bundle", BUNDLE, "--", CTL, "--bundle", "{bundle}",
            "watch", "--json")

    def test_bad_clients_are_found(self):
        script = "import os,socket,sys; link=socket.socket(socket.AF_UNIX); link.connect(sys.argv[1]); "
        for body, name in (("link.sendall(b'hello'*20); link.recv(1)", "request/frames"),
                           ("os.kill(os.getpid(), 11)", "client/absent-answers"),
                           ("import time; time.sleep(99)", "client/hang-up")):
            output = kit("client", "--only", name, "--timeout", "3", "--", sys.executable, "-c", script + body, "{socket}",
                         "{file}", status=1)
            self.assertIn(f"not ok 1 - {name}\n", output)
            self.assertIn("# Why: ", output)


class Usage(unittest.TestCase):
    def test_each_check_has_a_reason_and_a_page(self):
        for side in ("daemon", "client"):
            output = kit(side, "--list", "--profile", "full", *(["--profile", "menu"] if side == "client" else []))
            rows = [output.splitlines()[i:i + 3] for i in range(0, len(output.splitlines()), 3)]
            self.assertGreater(len(rows), 20)
            for name, why, page in rows:
                self.assertRegex(name, r"^\S+/\S+  \[\w+\]")
                self.assertRegex(why, r"^    \S.*\.$")
                self.assertTrue(os.path.isfile(os.path.join(SOURCE, "docs", "protocol", page.strip())), page)

    def test_what_is_installed_runs_by_itself(self):
        place = self.enterContext(tempfile.TemporaryDirectory())
        subprocess.run([os.environ["CMAKE"], "--install", os.environ["KELDANE_BUILD"], "--component", "dev", "--prefix", place],
                       check=True, stdout=subprocess.DEVNULL)
        words = [sys.executable, "-B", os.path.join(place, "bin", "keldane-conformance"), "daemon", "--list"]
        environment = {key: value for key, value in os.environ.items() if key != "KELDANE_PROTOCOL"}
        output = subprocess.run(words, check=True, capture_output=True, text=True, cwd="/", env=environment).stdout
        self.assertEqual(output, kit("daemon", "--list"))
        for page in ("protocol/README.md", "examples/minimum_daemon.py", "examples/file_status.py"):
            found = [folder for folder, _, _ in os.walk(place) if os.path.isfile(os.path.join(folder, page))]
            self.assertEqual(len(found), 1, page)
        self.expect_links(found[0])

    def expect_links(self, docs):
        """Each link of an installed page to another, or to an example, leads to a file. Other documents come otherwise."""
        source = os.path.join(SOURCE, "docs", "protocol")
        for name in filter(lambda name: name.endswith(".md"), os.listdir(source)):
            with open(os.path.join(docs, "protocol", name), encoding="utf-8") as stream:
                text = stream.read()
            self.assertNotIn("../../", text, name)
            for link in re.findall(r"\]\(((?:\.\./examples/)?[\w.-]+)[)#]", text):
                self.assertTrue(os.path.isfile(os.path.join(docs, "protocol", link)), f"{name}: {link}")

    def test_a_wrong_use_is_said(self):
        for words in (["daemon"], ["client"], [], ["daemon", "x", "--destructive"], ["daemon", "x", "--profile", "none"]):
            kit(*words, status=2)


if __name__ == "__main__":
    unittest.main()
