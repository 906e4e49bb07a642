"""Faults of a machine that affect the daemon and its clients: it kills and stops them, its clock jumps, its disk fills up,
its descriptors run out.

KELDANE_SEED determines the moments, KELDANE_KILLS how often the daemon is killed."""

import os
import plistlib
import random
import resource
import signal
import subprocess
import threading
import time
import unittest

from daemon_client import DaemonClient, Gone
from harness import BUNDLE, DAEMON, MENU, NO_COMMANDS, PATIENCE, Case
from recording_daemon import ENABLED

INSTRUMENTED = os.environ.get("KELDANE_INSTRUMENTED") == "1"
SEED = int(os.environ.get("KELDANE_SEED", "20261121"))
KILLS = int(os.environ.get("KELDANE_KILLS", "20" if INSTRUMENTED else "200"))
PRELOADED = os.environ["KELDANE_MACHINE_FAULTS_LIBRARY"]
CONTROL = os.path.join(os.path.dirname(MENU), "keldanectl")

EXCLUDED, INCLUDED = 0x40, 0x80  # in a node's backup flags: by a rule of its own
BACK_UP, WAITING = "Back This Up", "Waiting to be backed up"
UNSELECTED = ["Status: Not selected for backup", "-", BACK_UP, "Back Up This File As Soon As Possible", "-",
              "Open Keldane Preferences…"]


class Machine(Case):
    def setUp(self):
        super().setUp()
        self.faults = os.path.join(self.place, "faults")
        os.mkdir(self.faults)
        self.folder(".")
        self.errors = os.path.join(self.place, "errors")
        self.is_dead = threading.Event()  # set when no daemon will come any more

    # --- The machine ---

    def preload(self):
        if INSTRUMENTED:
            self.skipTest("what is preloaded would come before the sanitizer's own functions")
        self.environment |= {"LD_PRELOAD": PRELOADED, "KELDANE_MACHINE_FAULTS": self.faults}

    def switch(self, fault, value=""):
        """Switches a fault on; None switches it off."""
        path = os.path.join(self.faults, fault)
        if value is None:
            os.unlink(path)
            return
        with open(path + ".new", "w", encoding="ascii") as stream:
            stream.write(str(value))
        os.rename(path + ".new", path)  # so that the file is never seen half written

    def log(self):
        with open(self.errors, encoding="utf-8", errors="replace") as stream:
            return stream.read()

    # --- The daemon ---

    def spawn(self, **options):
        command = [DAEMON, "--foreground", "--socket", self.socket, "--store", os.path.join(self.place, "store"),
                   "--root", os.path.join(self.place, "files")]
        with open(self.errors, "ab") as errors:
            process = subprocess.Popen(command, env=self.environment, stderr=errors, **options)
        self.addCleanup(self.kill, process)
        return process

    def start(self):
        process = self.spawn()
        self.client().close()
        return process

    def client(self, timeout=PATIENCE):
        """Connects as soon as a daemon listens."""
        end = time.monotonic() + PATIENCE
        while True:
            try:
                return DaemonClient(self.socket, timeout)
            except Gone:
                if self.is_dead.is_set():
                    raise
                self.assertLess(time.monotonic(), end, "no daemon came:\n" + self.log())
                time.sleep(0.001)

    @staticmethod
    def kill(process):
        if process.poll() is None:
            process.kill()
        process.wait(PATIENCE)

    @staticmethod
    def node(client, path):
        return client.ask("dictionaryForPath:", path)


def own_rule(node):
    """Whether the path's own rule includes it; None without a rule."""
    flags = node["backupFlags"]
    return False if flags & EXCLUDED else True if flags & INCLUDED else None


class Kills(Machine):
    """A rule is accepted once an answer has shown it. Accepted rules survive the death of the daemon."""

    WRITERS, FILES = 3, 12

    def setUp(self):
        super().setUp()
        self.random = random.Random(SEED)
        self.accepted = {self.file(f"{writer}/{name}"): None
                         for writer in range(self.WRITERS) for name in range(self.FILES)}
        self.sent = {}  # rules that were sent and not shown yet, so they may have been kept or not
        self.rules = self.verified = 0
        self.lost = []

    def write(self, number, seed):
        """Changes rules, one after the other and each until it shows, until the daemon is dead."""
        choice = random.Random(seed)
        paths = [path for path in self.accepted if f"/files/{number}/" in path]
        try:
            with self.client() as client:
                while True:
                    path, included = choice.choice(paths), choice.random() < 0.5
                    self.sent[path] = included
                    client.send("addFileToBackup:" if included else "removeFileFromBackup:", path)
                    if own_rule(self.node(client, path)) != included:
                        self.lost.append((path, included, "did not show"))
                    self.accepted[path] = included
                    del self.sent[path]
                    self.rules += 1
        except Gone:
            pass

    def verify(self):
        with self.client() as client:
            for writer in range(self.WRITERS):
                for node in client.ask("childrenDictionariesForPath:", os.path.join(self.place, "files", str(writer))):
                    path, rule = node["path"], own_rule(node)
                    if rule not in {self.accepted[path], self.sent.get(path, self.accepted[path])}:
                        self.lost.append((path, self.accepted[path], rule))
                    self.accepted[path] = rule
                    self.verified += 1
        self.sent.clear()

    def test_no_accepted_rule_is_lost(self):
        for kill in range(KILLS):
            self.is_dead.clear()
            process = self.spawn()
            if self.random.random() < 0.1:  # while the daemon starts
                time.sleep(self.random.uniform(0, 0.02))
                self.kill(process)
                continue
            self.verify()
            writers = [threading.Thread(target=self.write, args=(number, self.random.random()))
                       for number in range(self.WRITERS)]
            for writer in writers:
                writer.start()
            if kill % 2 == 0:  # a few rules are accepted first, however slow the disk is
                enough = self.rules + 4
                self.eventually(lambda: self.rules >= enough, "a few rules")
            time.sleep(self.random.uniform(0, 0.04))
            self.kill(process)
            self.is_dead.set()
            for writer in writers:
                writer.join()
        self.is_dead.clear()
        self.spawn()
        self.verify()
        print(f"\nkills {KILLS}, rules set {self.rules}, rules verified {self.verified}, lost {len(self.lost)}, seed {SEED}")
        self.assertEqual(self.lost, [])
        self.assertGreater(self.rules, KILLS)


class Stops(Machine):
    """A process that is stopped in the middle of a cycle and goes on later does not change any menu."""

    def begin(self, path):
        return subprocess.Popen([MENU, "--bundle", self.bundle, "show", path], env=self.environment,
                                stdout=subprocess.PIPE, text=True)

    def check(self, menu):
        titles, _ = menu.communicate(timeout=PATIENCE)
        self.assertEqual(menu.returncode, 0)
        for title in (title for title in UNSELECTED if title != "-"):
            self.assertIn(title, titles)

    def test_a_stopped_daemon_is_waited_for(self):
        daemon, path = self.start(), self.file("a")
        daemon.send_signal(signal.SIGSTOP)
        menu = self.begin(path)
        time.sleep(0.3)
        self.assertIsNone(menu.poll(), "it waits, however long")
        daemon.send_signal(signal.SIGCONT)
        self.check(menu)

    def test_either_side_at_any_moment(self):
        daemon, path, choice = self.start(), self.file("a"), random.Random(SEED)
        for _ in range(4 if INSTRUMENTED else 16):
            menu = self.begin(path)
            for _ in range(3):
                stopped = choice.choice([daemon, menu])
                time.sleep(choice.uniform(0, 0.01))
                stopped.send_signal(signal.SIGSTOP)
                time.sleep(choice.uniform(0, 0.01))
                stopped.send_signal(signal.SIGCONT)
            self.check(menu)


class Clock(Machine):
    """The time of day is for display only. Nothing waits by it."""

    DAY = 86400

    def setUp(self):
        super().setUp()
        self.preload()

    def test_a_pause_is_as_long_as_it_was_asked_to_be(self):
        daemon, path = self.start(), self.file("a")
        with self.client() as client:
            client.send("setPausedMinutes:", ("I", 30))
            client.send("addFileToBackup:", path)
            for ahead in (0, self.DAY, -self.DAY, 10 * self.DAY):
                self.switch("clock", ahead)
                self.assertIn(client.ask("pausedMinutes", returns="I"), (29, 30), ahead)
                self.assertEqual(self.node(client, path)["state"], WAITING)
            time.sleep(1.2)  # the worker looks once a second
            self.assertEqual(self.node(client, path)["state"], WAITING)
        self.kill(daemon)
        # Without a daemon, only the time of day measures a pause; setting it back must not lengthen the pause.
        self.switch("clock", -self.DAY)
        daemon = self.start()
        with self.client() as client:
            self.assertIn(client.ask("pausedMinutes", returns="I"), (29, 30))
            client.send("setPausedMinutes:", ("I", 0))
            self.eventually(lambda: self.node(client, path)["state"] == "Backed up", "the backup")

    def test_waiting_goes_on_as_if_nothing_were(self):
        self.start()
        path = self.file("a")
        over = threading.Event()

        def jump():
            choice = random.Random(SEED)
            while not over.wait(0.002):
                self.switch("clock", choice.choice((-10, -1, 0, 1, 10)) * self.DAY)

        jumping = threading.Thread(target=jump)
        jumping.start()
        try:
            for _ in range(5):
                self.assertEqual(self.titles(path), UNSELECTED)
            # The plug-in waits a second for a daemon that dies during the question.
            os.unlink(self.socket)
            self.daemon(ENABLED, fault="dies")
            begun = time.monotonic()
            self.assertEqual(self.titles(path), NO_COMMANDS)
            self.assertLess(time.monotonic() - begun, 20)
        finally:
            over.set()
            jumping.join()


class Disk(Machine):
    """Accepted settings are kept, settings that cannot be kept are refused with a message, and all works again when there is
    room."""

    def setUp(self):
        super().setUp()
        self.preload()

    def test_a_daemon_without_room_refuses_and_goes_on(self):
        daemon = self.start()
        kept, refused, later = (self.file(name) for name in ("kept", "refused", "later"))
        client = self.client()
        self.addCleanup(client.close)
        client.send("addFileToBackup:", kept)
        self.assertTrue(own_rule(self.node(client, kept)))
        self.eventually(lambda: self.node(client, kept)["state"] == "Backed up", "the backup")
        self.switch("full")
        self.assertEqual(client.ask("excludeFileFromBackup:", refused, returns="I"), 5, "EIO")
        self.assertEqual(client.ask("unexcludeFileFromBackup:", kept, returns="I"), 5, "EIO")
        client.send("removeFileFromBackup:", kept)
        client.send("addFileToBackup:", refused)
        client.send("setValueForProfileKey:withString:", "k", "v")
        self.assertTrue(own_rule(self.node(client, kept)), "what is refused changes nothing")
        self.assertIsNone(own_rule(self.node(client, refused)))
        self.assertIsNone(client.ask("stringValueForProfileKey:", "k"))
        self.assertIn("The rule of " + refused + " cannot be kept: ", self.log())
        for command in (["pause", "5"], ["profile", "set", "k", "v"], ["type", "txt", "exclude"], ["automatic", "off"],
                        ["add", refused], ["remove", kept]):
            result = subprocess.run([CONTROL, "--bundle", self.bundle, *command], env=self.environment, text=True,
                                    capture_output=True, timeout=PATIENCE, check=False)
            self.assertEqual(result.returncode, 1, command)
            self.assertRegex(result.stderr, "erhaps (it cannot write to its store because )?the disk is full")
            self.assertNotIn("only root", result.stderr)
        self.assertIn("The store cannot be used for setValueForProfileKey:withString:: ", self.log())
        state = client.ask("daemonState")
        self.assertIn("ules and settings", state["statusString"])
        self.assertEqual(state["storeTrouble"], state["statusString"])
        self.switch("full", None)
        self.eventually(lambda: client.ask("daemonState")["storeTrouble"] == "", "the room that is there again")
        client.send("addFileToBackup:", later)
        self.assertTrue(own_rule(self.node(client, later)), "there is room again")
        self.eventually(lambda: self.node(client, later)["state"] == "Backed up", "the backup")
        self.kill(daemon)
        self.start()
        with self.client() as after:
            self.assertEqual([own_rule(self.node(after, path)) for path in (kept, refused, later)], [True, None, True])

    def test_a_daemon_that_may_not_write_says_so(self):
        for fault in ("full", "read-only"):
            self.switch(fault)
            process = self.spawn()
            self.assertEqual(process.wait(PATIENCE), 1, fault)
            self.assertIn("keldaned: The ", self.log())
            self.switch(fault, None)
        self.start()

    def test_preferences_that_cannot_be_written_stay_as_they_were(self):
        daemon = self.daemon({"userEmail": "new@example.org"})
        folder = self.environment["XDG_CONFIG_HOME"]
        os.makedirs(folder)
        file = os.path.join(folder, "com.keldane.preferences.plist")
        with open(file, "wb") as stream:
            plistlib.dump({"lastAcctEmailStr": "old@example.org", "other": 1}, stream)
        with open(file, "rb") as stream:
            before = stream.read()
        for fault in ("full", "read-only"):
            self.switch(fault)
            result = subprocess.run([CONTROL, "--bundle", self.bundle, "status"], env=self.environment, text=True,
                                    capture_output=True, timeout=PATIENCE, check=False)
            self.switch(fault, None)
            self.assertEqual(result.returncode, 0, result.stderr)
            self.assertIn("new@example.org", result.stdout)
            self.assertIn("The preferences ", result.stderr, fault)
            with open(file, "rb") as stream:
                self.assertEqual(stream.read(), before)
            self.assertEqual([name for name in os.listdir(folder) if not name.endswith(".lock")],
                             ["com.keldane.preferences.plist"], "nothing is left behind")
        subprocess.run([CONTROL, "--bundle", self.bundle, "status"], env=self.environment, capture_output=True,
                       timeout=PATIENCE, check=True)
        with open(file, "rb") as stream:
            self.assertEqual(plistlib.load(stream)["lastAcctEmailStr"], "new@example.org")
            daemon.stop()


class Descriptors(Machine):
    MOST = 24

    @unittest.skipIf(INSTRUMENTED, "the sanitizers open files of their own")
    def test_a_host_with_few_of_them_shows_less_or_nothing(self):
        self.start()
        path = self.file("a")
        seen = set()
        for most in range(3, self.MOST):
            result = self.run_menu("--json", "show", path, preexec_fn=lambda: resource.setrlimit(
                resource.RLIMIT_NOFILE, (most, most)))
            self.assertGreaterEqual(result.returncode, 0, f"{most}: {result.stderr}")
            if result.returncode == 0:
                menu = __import__("json").loads(result.stdout)["menu"]
                titles = menu and [item["title"] for item in menu["items"]]
                self.assertIn(titles, (None, NO_COMMANDS, UNSELECTED), most)
                seen.add(titles == UNSELECTED)
        self.assertIn(True, seen)

    def test_a_daemon_without_any_serves_again_when_there_are_some(self):
        daemon, path = self.start(), self.file("a")
        usual = resource.prlimit(daemon.pid, resource.RLIMIT_NOFILE)
        open_now = len(os.listdir(f"/proc/{daemon.pid}/fd"))
        for more in range(-2, 5):
            resource.prlimit(daemon.pid, resource.RLIMIT_NOFILE, (open_now + more, usual[1]))
            clients = []
            for _ in range(3):
                try:
                    clients.append(DaemonClient(self.socket, 0.1))
                    clients[-1].ask("childrenDictionariesForPath:", os.path.dirname(path))
                except Gone:
                    pass  # it waits in the socket's queue, or was turned away
            resource.prlimit(daemon.pid, resource.RLIMIT_NOFILE, usual)
            for client in clients:
                client.close()
            with self.client() as client:
                self.assertIsNotNone(self.node(client, path), more)
                client.send("addFileToBackup:" if more % 2 else "removeFileFromBackup:", path)
                self.assertEqual(own_rule(self.node(client, path)), bool(more % 2))

    @unittest.skipIf(INSTRUMENTED, "the sanitizers open files of their own")
    def test_a_daemon_that_starts_with_few_serves_or_says_why_not(self):
        served = False
        for most in range(4, self.MOST):
            process = self.spawn(preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_NOFILE, (most, most)))
            self.eventually(lambda: process.poll() is not None or os.path.exists(self.socket), "the daemon")
            for _ in range(10):  # the daemon turns away clients that it cannot serve
                try:
                    with DaemonClient(self.socket, 0.2) as client:
                        served = client.ask("daemonState") is not None
                except Gone:
                    time.sleep(0.002)
            self.assertGreaterEqual(process.poll() or 0, 0, f"{most}:\n{self.log()}")
            if served:
                break
            self.kill(process)
            if os.path.exists(self.socket):
                os.unlink(self.socket)
        self.assertTrue(served)


if __name__ == "__main__":
    unittest.main()
