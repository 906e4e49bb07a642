"""keldanectl against the reference daemon on real files, and against daemons that answer strangely."""

import fcntl
import json
import os
import plistlib
import pty
import re
import select
import shutil
import signal
import socket
import struct
import subprocess
import termios
import time
import unittest

from harness import PATIENCE, Case, Keldaned

CTL = os.environ["KELDANECTL"]

DONE, NOT_TAKEN, USAGE, UNREACHABLE, DEADLINE_PASSED = range(5)
NOBODY = 65534


class Terminal:
    """A program on a pseudo-terminal of a given width, and all that it has written there."""

    def __init__(self, command, environment, columns=100):
        self.pid, self.descriptor = pty.fork()
        if self.pid == 0:
            fcntl.ioctl(0, termios.TIOCSWINSZ, struct.pack("HHHH", 24, columns, 0, 0))
            os.execve(command[0], command, environment)
        self.text = ""
        self.status = None

    def read(self, seconds=0.05):
        """What has come meanwhile is appended; false once the program has closed the terminal."""
        if select.select([self.descriptor], [], [], seconds)[0]:
            try:
                self.text += os.read(self.descriptor, 65536).decode(errors="replace")
            except OSError:
                return False
        return True

    def wait_for(self, pattern):
        end = time.monotonic() + PATIENCE
        while not re.search(pattern, self.text):
            if time.monotonic() > end or not self.read():
                raise AssertionError(f"{pattern!r} did not appear in {self.text!r}")

    def write(self, text):
        os.write(self.descriptor, text.encode())

    def wait(self):
        """Its wait status, once it has ended."""
        end = time.monotonic() + PATIENCE
        while self.status is None and time.monotonic() < end:
            self.read()
            pid, status = os.waitpid(self.pid, os.WNOHANG)
            if pid:
                self.status = status
        while self.read(0):
            if not select.select([self.descriptor], [], [], 0)[0]:
                break
        return self.status

    def kill(self):
        if self.status is None:
            os.kill(self.pid, signal.SIGKILL)
            os.waitpid(self.pid, 0)
        os.close(self.descriptor)


class CtlCase(Case):
    program = CTL

    def command(self, *arguments):
        return [self.program, "--bundle", self.bundle, *arguments]

    def run_ctl(self, *arguments, **options):
        options.setdefault("stdin", subprocess.DEVNULL)
        return subprocess.run(self.command(*arguments), env=self.environment, capture_output=True, timeout=PATIENCE,
                              check=False, text=True, **options)

    def ctl(self, *arguments, status=DONE, **options):
        """What it prints."""
        result = self.run_ctl(*arguments, **options)
        self.assertEqual(result.returncode, status, result.stdout + result.stderr)
        if status == DONE:
            self.assertEqual(result.stderr, "")
        return result.stdout

    def refusal(self, *arguments, status=NOT_TAKEN, **options):
        """The sentence with which it declines."""
        result = self.run_ctl(*arguments, **options)
        self.assertEqual(result.returncode, status, result.stdout + result.stderr)
        self.assertRegex(result.stderr, r"\Akeldanectl: .*\.\n\Z")
        return result.stderr

    def json(self, *arguments, status=DONE):
        return json.loads(self.ctl(*arguments, "--json", status=status))

    def terminal(self, *arguments, columns=100, **environment):
        terminal = Terminal(self.command(*arguments),
                            {"TERM": "xterm-256color", **self.environment, **environment}, columns)
        self.addCleanup(terminal.kill)
        return terminal

    def backed_up(self, *paths):
        self.ctl("add", *paths)
        self.ctl("watch", "--until-done")


class WithTheDaemon(CtlCase):
    def setUp(self):
        super().setUp()
        self.files = self.folder(".")
        self.keldaned = Keldaned(self)

    # --- Settings ---

    def test_status_has_every_value_of_the_state(self):
        text = self.ctl("status")
        for label in ("Daemon", "Account", "Server", "Computer", "Skin", "Status", "Backed up", "Pending",
                      "Backup needed", "Current file", "Restoring", "Quota", "Paused", "Automatic", "Low priority",
                      "Recover mode", "Service state", "Control flags"):
            self.assertRegex(text, rf"(?m)^{label} ")
        state = self.json("status")["state"]
        self.assertIn(len(state), (23, 24))  # without the date of a good backup before the first
        self.assertEqual(state["statusString"], "Up to date")

    def test_a_quota_is_a_bar(self):
        self.assertRegex(self.ctl("status"), r"(?m)^Quota +not limited$")
        self.ctl("profile", "set", "QuotaMB", "1")
        self.backed_up(self.file("half", "x" * (1 << 19)))
        self.assertRegex(self.ctl("status"), r"(?m)^Quota +\[█+░+\] 50% of 1\.0 MiB$")
        self.backed_up(self.file("more", "x" * (1 << 20)))
        self.assertRegex(self.ctl("status"), r"(?m)^Quota +\[█+\] 150% of 1\.0 MiB, over the quota$")

    def test_account_values_are_remembered_when_the_daemon_is_away(self):
        for key, value in (("UserEmail", "someone@example.org"), ("ServerURL", "https://backup.example.org"),
                           ("ComputerNumber", "42"), ("SkinId", "plain"), ("QuotaMB", "1")):
            self.ctl("profile", "set", key, value)
        account = self.json("status")["account"]
        self.assertEqual(account, {"userEmail": "someone@example.org", "serverURL": "https://backup.example.org",
                                   "computerNumber": 42, "skinId": "plain", "isQuotaLimited": True,
                                   "remembered": False})
        self.keldaned.terminate()
        answer = self.json("status", status=UNREACHABLE)
        self.assertEqual(answer["account"], {**account, "remembered": True})
        self.assertIs(answer["connected"], False)
        self.assertIsNone(answer["state"])
        result = self.run_ctl("status")
        self.assertEqual(result.returncode, UNREACHABLE)
        self.assertIn("someone@example.org (remembered)\n", result.stdout)
        self.assertEqual(result.stderr, f"keldanectl: The backup daemon cannot be reached at {self.socket}.\n")

    def test_pause_and_resume(self):
        self.assertEqual(self.ctl("pause", "90"), "Paused for 1 h 30 min.\n")
        self.assertEqual(self.json("status")["pausedMinutes"], 90)
        self.assertRegex(self.ctl("status"), r"(?m)^Paused +yes, for 1 h 30 min$")
        self.assertEqual(self.ctl("resume"), "The backup goes on.\n")
        self.assertIs(self.json("status")["state"]["paused"], False)

    def test_switches(self):
        for name, value in (("automatic", lambda answer: answer["automaticMode"]),
                            ("low-priority", lambda answer: answer["state"]["lowerPriorityMode"]),
                            ("recover", lambda answer: answer["state"]["recoverMode"])):
            for position in ("on", "off", "on"):
                self.assertTrue(self.ctl(name, position).endswith(f" is {position}.\n"))
                self.assertIs(value(self.json("status")), position == "on", name)

    def test_profile(self):
        self.refusal("profile", "get", "Nickname")
        self.ctl("profile", "set", "Nickname", "böx\n")
        self.assertEqual(self.ctl("profile", "get", "Nickname"), "böx\\n\n")
        self.assertEqual(self.json("profile", "get", "Nickname"), {"key": "Nickname", "value": "böx\n"})
        self.assertIsNone(self.json("profile", "get", "Other", status=NOT_TAKEN)["value"])

    def test_types(self):
        self.assertEqual(self.ctl("type", "tmp", "show"), ".tmp: none\n")
        self.assertEqual(self.ctl("type", "tmp", "exclude"), ".tmp: exclude\n")
        self.assertEqual(self.ctl("type", ".tmp", "backup"), ".tmp: backup\n")
        self.assertEqual(self.json("type", "tmp", "show"), {"type": ".tmp", "rule": "backup", "toggle": 6})

    def test_stop_asks_first(self):
        self.assertIn("--yes", self.refusal("stop", status=USAGE))
        terminal = self.terminal("stop")
        terminal.wait_for(r"Stop it\? \[y/N\] ")
        terminal.write("n\n")
        self.assertEqual(os.waitstatus_to_exitcode(terminal.wait()), NOT_TAKEN)
        self.assertIs(self.json("status")["connected"], True)
        terminal = self.terminal("stop")
        terminal.wait_for(r"Stop it\?")
        terminal.write("y\n")
        self.assertEqual(os.waitstatus_to_exitcode(terminal.wait()), DONE, terminal.text)
        self.assertIn("The daemon has stopped.", terminal.text)
        self.assertEqual(self.keldaned.process.wait(PATIENCE), 0)

    def test_stop_without_asking(self):
        self.assertEqual(self.ctl("stop", "--yes"), "The daemon has stopped.\n")
        self.assertEqual(self.keldaned.process.wait(PATIENCE), 0)

    def program_for_others(self):
        """A copy of the program and its libraries where other users can run it, and what the loader must know."""
        programs = os.path.join(self.place, "programs")
        os.mkdir(programs)
        listed = subprocess.run(["ldd", CTL], capture_output=True, check=True, text=True).stdout
        for path in [CTL, *re.findall(r"=> (/\S+)", listed)]:
            if not path.startswith(("/lib", "/usr/lib")):
                shutil.copy(path, programs)
        return os.path.join(programs, os.path.basename(CTL)), {"LD_LIBRARY_PATH": programs}

    @unittest.skipUnless(os.geteuid() == 0, "only root can be somebody else")
    def test_what_another_user_may_not_do_is_said(self):
        os.chmod(self.place, 0o755)
        os.chmod(self.socket, 0o777)
        other = {"user": NOBODY, "group": NOBODY, "extra_groups": []}
        self.program, loader = self.program_for_others()
        self.environment.update(loader)
        for command in (["pause", "5"], ["automatic", "off"], ["low-priority", "on"], ["recover", "on"],
                        ["profile", "set", "a", "b"], ["type", "x", "backup"]):
            self.assertIn("did not take it", self.refusal(*command, **other))
        self.assertIn("did not take it", self.refusal("stop", "--yes", **other))
        secret = self.file("secret")
        os.chmod(secret, 0o600)
        self.assertIn("or may not tell you", self.refusal("add", secret, **other))
        self.assertIn("or may not tell you", self.refusal("ls", secret, **other))

    # --- Rules ---

    def test_add_remove_and_asap(self):
        path = self.file("a b\n")
        self.assertTrue(self.ctl("add", path).startswith(self.files.rstrip(".") + "a b\\n: "))
        self.ctl("watch", "--until-done")
        self.assertTrue(self.ctl("add", path).endswith(": Backed up\n"))
        self.assertTrue(self.ctl("remove", path).endswith(": Not selected for backup\n"))
        self.ctl("automatic", "off")
        other = self.file("other")
        self.ctl("asap", other)
        self.eventually(lambda: self.json("ls", other)[0]["state"] == "Backed up", "the preferred file")

    def test_paths_are_taken_from_the_working_directory(self):
        self.file("d/x")
        self.assertTrue(self.ctl("add", "./d/../d/", cwd=self.files).startswith(f"{os.path.dirname(self.file('x'))}/d: "))
        self.assertIn("x\n", self.ctl("ls", cwd=self.folder("d")))

    def test_what_is_not_there_fails_and_the_rest_is_done(self):
        path = self.file("a")
        result = self.run_ctl("add", os.path.join(self.files, "none"), path)
        self.assertEqual(result.returncode, NOT_TAKEN)
        self.assertIn("knows nothing of", result.stderr)
        self.assertTrue(result.stdout.startswith(path))
        self.assertIn("Excluded by policy", self.refusal("add", "/etc/passwd"))

    # --- Listings ---

    def make_tree(self):
        self.file("d/a.txt", "x" * 2000)
        self.file("d/b.txt")
        self.file("d/e/c.txt")
        self.folder("d/empty")
        self.top = self.folder("d")
        self.backed_up(self.top)

    def test_ls(self):
        self.make_tree()
        rows = self.ctl("ls", self.top).splitlines()
        self.assertEqual([row.split()[-1] for row in rows], ["a.txt", "b.txt", "e/", "empty/"])
        self.assertRegex(rows[0], r"^-sb-----  Backed up +2\.0 KiB  \d{4}-\d\d-\d\d \d\d:\d\d  a\.txt$")
        self.assertRegex(rows[2], r"^ds------  Backed up +-  - +e/$")
        self.assertRegex(self.ctl("ls", "--flags", self.top).splitlines()[0],
                         r"  a\.txt  0x00000030 : Backup_Priority \(0\) Backup_Backup Backup_BackedUp $")
        nodes = self.json("ls", self.top)
        self.assertEqual([node["path"] for node in nodes],
                         [os.path.join(self.top, name) for name in ("a.txt", "b.txt", "e", "empty")])
        self.assertEqual(nodes[0]["size"], 2000)

    def test_ls_of_everything_below(self):
        self.make_tree()
        text = self.ctl("ls", "-R", self.top)
        self.assertEqual(re.findall(r"(?m)^(/.*):$", text), [self.top, self.top + "/e", self.top + "/empty"])
        self.assertEqual(len(self.json("ls", "-R", self.top)), 5)

    def test_ls_of_a_file(self):
        path = self.file("f")
        self.assertTrue(self.ctl("ls", path).rstrip("\n").endswith(path))
        self.assertEqual([node["path"] for node in self.json("ls", path)], [path])

    def test_tree(self):
        self.make_tree()
        rows = self.ctl("tree", self.top).splitlines()
        self.assertEqual([re.search("[├└│].*", row)[0] for row in rows[1:]], ["├── a.txt", "├── b.txt", "├── e/", "│   └── c.txt", "└── empty/"])
        plain = dict(self.environment, LC_ALL="C")
        result = subprocess.run(self.command("tree", self.top), env=plain, capture_output=True, check=True, text=True)
        self.assertIn("|   `-- c.txt", result.stdout)
        self.assertEqual(len(self.ctl("tree", "--depth", "1", self.top).splitlines()), 5)
        tree = self.json("tree", self.top)
        self.assertEqual([child["fileName"] for child in tree["children"]], ["a.txt", "b.txt", "e", "empty"])
        self.assertEqual([child["fileName"] for child in tree["children"][2]["children"]], ["c.txt"])
        self.assertEqual(tree["children"][3]["children"], [])
        self.assertNotIn("children", self.json("tree", "--depth", "1", self.top)["children"][2])

    def test_a_folder_of_many_entries(self):
        folder = self.folder("many")
        for i in range(20000):
            with open(os.path.join(folder, f"{i:05}"), "w", encoding="ascii"):
                pass
        nodes = self.json("ls", folder)
        self.assertEqual([node["fileName"] for node in nodes], [f"{i:05}" for i in range(20000)])

    # --- Selections ---

    def paths(self, *names):
        return [os.path.join(self.top, name) for name in names]

    def test_select(self):
        self.make_tree()
        choose = lambda *options: self.ctl("select", *options).splitlines()
        self.assertEqual(choose(self.top), [self.top])
        self.assertEqual(choose(self.top, "--not", self.top + "/b.txt"), self.paths("a.txt", "e", "empty"))
        self.assertEqual(choose(self.top, "--not", self.top + "/e/c.txt"), self.paths("a.txt", "b.txt", "empty"))
        self.assertEqual(choose("--files", self.top), self.paths("a.txt", "b.txt", "e/c.txt"))
        self.assertEqual(choose("--deepest", self.top), self.paths("a.txt", "b.txt", "e", "empty"))
        self.assertEqual(choose("--topmost", *self.paths("a.txt", "e/c.txt")), self.paths("a.txt", "e"))
        self.assertEqual(self.ctl("select", "-0", self.top), self.top + "\0")
        self.assertEqual([node["path"] for node in self.json("select", self.top)], [self.top])

    def test_what_was_never_backed_up_cannot_be_selected(self):
        self.make_tree()
        path = self.file("new")
        self.assertIn("never backed up", self.refusal("select", path))
        self.assertIn("knows nothing of", self.refusal("select", path + "er"))
        self.assertIn("not among what could be selected", self.run_ctl("select", self.top, "--not", "/usr").stderr)

    # --- Watching ---

    def watch(self, *arguments):
        process = subprocess.Popen(self.command("watch", *arguments), env=self.environment, stdout=subprocess.PIPE,
                                   stderr=subprocess.DEVNULL, text=True)

        def end():
            process.kill()
            process.wait(PATIENCE)
            process.stdout.close()
        self.addCleanup(end)
        return process

    def test_watch_says_a_line_a_change(self):
        process = self.watch()
        self.assertRegex(process.stdout.readline(), r"^\d\d:\d\d:\d\d Up to date$")
        self.ctl("pause", "1")
        self.assertRegex(process.stdout.readline(), r"Paused$")
        self.ctl("add", self.file("f", "x" * 3000))
        self.assertRegex(process.stdout.readline(), r"Paused \(1 file, 2\.9 KiB to go\)$")

    def test_watch_goes_on_when_the_daemon_is_killed_and_started_again(self):
        process = self.watch()
        self.assertIn("Up to date", process.stdout.readline())
        self.keldaned.kill()
        self.assertIn("The backup daemon has gone; waiting for it to come back.", process.stdout.readline())
        self.keldaned.start()
        self.assertIn("The backup daemon is back.", process.stdout.readline())
        self.ctl("pause", "1")
        self.eventually(lambda: "Paused" in process.stdout.readline(), "the next change")

    def test_watch_in_json(self):
        process = self.watch("--json")
        event = json.loads(process.stdout.readline())
        self.assertEqual(event["event"], "state")
        self.assertEqual(event["progress"]["fraction"], 1)
        self.keldaned.kill()
        self.assertEqual(json.loads(process.stdout.readline())["event"], "disconnected")
        self.keldaned.start()
        self.assertEqual(json.loads(process.stdout.readline())["event"], "connected")

    def test_watch_ends_when_nobody_reads_it(self):
        process = self.watch()
        process.stdout.readline()
        process.stdout.close()
        self.ctl("pause", "1")
        self.assertNotEqual(process.wait(PATIENCE), None)

    def test_watch_draws_a_bar_on_a_terminal(self):
        self.ctl("low-priority", "on")
        self.ctl("pause", "1")
        folder = self.folder("many")
        for i in range(100):
            self.file(f"many/{i}", "x" * 1000)
        self.ctl("add", folder)
        terminal = self.terminal("watch", "--until-done")
        terminal.wait_for(r"\[░+\] +0%  Paused  100 files, 98 KiB to go")
        self.ctl("resume")
        terminal.wait_for(r"\[█+░*\] +\d+%  \d+ files?, [\d.]+ \w+ to go  [\d.]+ \w+/s, \d+ s left")
        self.assertEqual(os.waitstatus_to_exitcode(terminal.wait()), DONE, terminal.text)
        self.assertRegex(terminal.text, r"Up to date\r\n\Z")
        self.assertNotRegex(terminal.text, r"go  \r")

    def test_watch_keeps_to_the_width_of_the_terminal(self):
        self.ctl("pause", "1")
        self.ctl("add", self.file("a" * 200))
        for columns in (20, 40, 77, 200):
            terminal = self.terminal("watch", columns=columns)
            terminal.wait_for(r"0%")
            line = re.sub(r"\x1b\[[0-9;]*[A-Za-z]", "", terminal.text.rsplit("\r", 1)[-1])
            self.assertLess(len(line), columns)

    def test_watch_on_a_terminal_across_the_death_of_the_daemon(self):
        terminal = self.terminal("watch")
        terminal.wait_for("Up to date")
        self.keldaned.kill()
        terminal.wait_for("The backup daemon has gone; waiting for it to come back.")
        self.keldaned.start()
        terminal.wait_for("The backup daemon is back.")
        self.ctl("pause", "1")
        terminal.wait_for("Paused")
        terminal.write("\x03")
        self.assertEqual(os.waitstatus_to_exitcode(terminal.wait()), -signal.SIGINT)
        self.assertTrue(terminal.text.endswith("\r\n"))

    # --- Colours ---

    def test_colours_are_for_terminals_that_want_them(self):
        self.backed_up(self.file("f"))
        green = "\x1b[32mBacked up"
        self.assertNotIn("\x1b", self.ctl("ls", self.files))
        self.assertNotIn("\x1b", self.ctl("status"))
        for environment, colored in (({}, True), ({"NO_COLOR": ""}, True), ({"NO_COLOR": "1"}, False),
                                     ({"TERM": "vt100"}, False), ({"TERM": "no-such-terminal"}, False)):
            terminal = self.terminal("ls", self.files, **environment)
            self.assertEqual(os.waitstatus_to_exitcode(terminal.wait()), DONE, terminal.text)
            self.assertIs(green in terminal.text, colored, environment)
            self.assertIn("Backed up", terminal.text)

    def test_a_narrow_terminal_has_no_room_for_dates(self):
        self.backed_up(self.file("f"))
        for columns, dated in ((89, False), (90, True)):
            terminal = self.terminal("ls", self.files, columns=columns)
            terminal.wait()
            self.assertIs(re.search(r"\d{4}-\d\d-\d\d", terminal.text) is not None, dated)


class WithoutADaemon(CtlCase):
    def test_it_says_so_with_a_status_of_its_own(self):
        sentence = f"keldanectl: The backup daemon cannot be reached at {self.socket}.\n"
        for command in (["pause", "5"], ["resume"], ["automatic", "on"], ["low-priority", "on"], ["recover", "on"],
                        ["profile", "get", "a"], ["profile", "set", "a", "b"], ["type", "txt", "show"], ["add", "/a"],
                        ["remove", "/a"], ["asap", "/a"], ["stop", "--yes"], ["ls", "/"], ["tree", "/"],
                        ["select", "/a"]):
            self.assertEqual(self.refusal(*command, status=UNREACHABLE), sentence, command)

    def test_a_bundle_that_names_no_daemon(self):
        self.edit_info(DaemonPath=None)
        self.assertIn("does not say where the daemon is", self.refusal("status", status=UNREACHABLE))
        result = subprocess.run([CTL, "status"], env=self.environment, capture_output=True, check=False, text=True)
        self.assertEqual(result.returncode, UNREACHABLE)
        self.assertIn("--bundle", result.stderr)

    def test_the_installed_bundle_is_found(self):
        plugins = os.path.join(self.environment["XDG_DATA_HOME"], "keldane", "plugins")
        os.makedirs(plugins)
        os.rename(self.bundle, os.path.join(plugins, "Keldane.plugin"))
        result = subprocess.run([CTL, "status"], env=self.environment, capture_output=True, check=False, text=True)
        self.assertEqual(result.returncode, UNREACHABLE)
        self.assertIn(self.socket, result.stderr)

    def test_watch_waits_for_it(self):
        process = subprocess.Popen(self.command("watch"), env=self.environment, stdout=subprocess.PIPE, text=True)
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        self.assertIn("cannot be reached", process.stdout.readline())
        self.folder(".")
        Keldaned(self)
        self.assertIn("The backup daemon is back.", process.stdout.readline())
        self.assertIn("Up to date", process.stdout.readline())

    def test_usage(self):
        for arguments in ([], ["nonsense"], ["pause"], ["pause", "soon"], ["pause", "0"], ["pause", "-1"],
                          ["automatic", "maybe"], ["profile"], ["type", "x", "never"], ["add"], ["tree", "--depth", "0"],
                          ["select", "--files", "--deepest", "/a"], ["--deadline", "-1", "status"], ["completion", "csh"]):
            result = self.run_ctl(*arguments)
            self.assertEqual(result.returncode, USAGE, arguments)
            self.assertIn("--help tells more", result.stderr)

    def test_each_command_has_help(self):
        text = self.ctl("--help")
        for command in ("status", "watch", "pause", "resume", "automatic", "low-priority", "recover", "profile", "type",
                        "add", "remove", "asap", "inherit", "stop", "ls", "tree", "select", "completion"):
            self.assertIn(command, text)
            self.assertIn("Usage: keldanectl " + command, self.ctl(command, "--help"))
        self.assertRegex(self.ctl("--version"), r"^keldanectl \d+\.\d+")

    # --- Completion ---

    def test_bash_completes(self):
        script = self.file("completion", self.ctl("completion", "bash"))
        self.file("some file")

        def complete(*words):
            probe = (f"source '{script}'; compopt() {{ echo files; }}; COMP_WORDS=({' '.join(map(repr, words))}); "
                     f"COMP_CWORD={len(words) - 1}; _keldanectl; printf '%s\\n' \"${{COMPREPLY[@]}}\"")
            return subprocess.run(["bash", "-c", probe], capture_output=True, check=True, text=True).stdout.split()
        self.assertEqual(complete("keldanectl", "st"), ["status", "stop"])
        self.assertEqual(complete("keldanectl", "status", "--j"), ["--json"])
        self.assertEqual(complete("keldanectl", "automatic", "o"), ["on", "off"])
        self.assertEqual(complete("keldanectl", "profile", "s"), ["set"])
        self.assertEqual(complete("keldanectl", "profile", "get", "--"), ["--help", "--json"])
        self.assertEqual(complete("keldanectl", "add", "so"), ["files"])
        self.assertEqual(complete("keldanectl", "ls", "--f"), ["files", "--flags"])
        self.assertEqual(complete("keldanectl", "--bundle", "x", "tree", "--d"), ["files", "--depth"])

    def test_fish_completes(self):
        script = self.file("completion.fish", self.ctl("completion", "fish"))

        def complete(line):
            result = subprocess.run(["fish", "-c", f"source '{script}'; complete -C '{line}'"], capture_output=True,
                                    env={**self.environment, "PATH": os.path.dirname(CTL) + ":" + os.environ["PATH"]},
                                    check=True, text=True, cwd=self.folder("."))
            return [row.split("\t")[0] for row in result.stdout.splitlines()]
        self.assertEqual(complete("keldanectl st"), ["status", "stop"])
        self.assertIn("--json", complete("keldanectl status --"))
        self.assertEqual(sorted(complete("keldanectl automatic o")), ["off", "on"])
        self.assertEqual(complete("keldanectl profile s"), ["set"])
        self.assertIn("completion.fish", complete("keldanectl add compl"))

    def test_zsh_completes(self):
        self.file("completion", self.ctl("completion", "zsh"))
        # compadd belongs to the completion system; in its place stands one that prints what it is given.
        def complete(*words):
            probe = ("compadd() { shift; print -l -- $@ }; _files() { print files }; "
                     f"words=({' '.join(map(repr, words))}); CURRENT={len(words)}; source ./completion")
            return subprocess.run(["zsh", "-f", "-c", probe], capture_output=True, check=True, text=True,
                                  cwd=self.folder(".")).stdout.split()
        self.assertIn("status", complete("keldanectl", ""))
        self.assertIn("--until-done", complete("keldanectl", "watch", ""))
        self.assertEqual(complete("keldanectl", "add", ""), ["files"])
        self.assertIn("get", complete("keldanectl", "profile", ""))


class WithAStrangeDaemon(CtlCase):
    def test_a_daemon_without_a_state(self):
        self.daemon()
        text = self.ctl("status")
        self.assertRegex(text, r"(?m)^Backed up +unknown files, unknown size$")
        self.assertIsNone(self.json("status")["state"])

    def test_values_that_nobody_knows_are_shown_as_they_are(self):
        self.daemon({"daemonState": {"newThing": {"a": [1, 2]}, "statusString": "\x1b[31mred", "quotaMB": "many",
                                     "isQuotaLimited": True}})
        text = self.ctl("status")
        self.assertRegex(text, r"(?m)^newThing +\{")
        self.assertIn("\\x1b[31mred", text)
        self.assertNotIn("\x1b", text)
        self.assertRegex(text, r"(?m)^Quota +\[█+\] 100% of 0 B$")

    def test_a_daemon_that_does_not_answer_is_left_after_the_deadline(self):
        with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as listener:
            listener.bind(self.socket)
            listener.listen()
            sentence = self.refusal("--deadline", "0.2", "status", status=DEADLINE_PASSED)
            self.assertIn("has not answered for 0.2 seconds", sentence)
            process = subprocess.Popen(self.command("--deadline", "0.2", "watch"), env=self.environment,
                                       stderr=subprocess.PIPE, text=True)
            self.addCleanup(process.stderr.close)
            self.addCleanup(process.wait)
            self.addCleanup(process.kill)
            self.assertIn("does not answer; waiting for it", process.stderr.readline())

    def test_names_cannot_write_to_the_terminal(self):
        name = "evil\x1b[2J\n\u202e"
        entry = {"fileName": name, "path": "/d/" + name, "isDirectory": False}
        self.daemon({"dictionaryForPath:withDirSizes:": {"fileName": "d", "isDirectory": True},
                     "childrenDictionariesForPath:": [entry, "no dictionary", 7]})
        for command in (["ls", "/d"], ["tree", "/d"]):
            text = self.ctl(*command)
            self.assertIn("evil\\x1b[2J\\n\\u202e", text)
            self.assertNotIn("\x1b", text)

    def test_answers_that_lead_in_circles_come_to_an_end(self):
        folder = {"fileName": "d", "path": "/d", "isDirectory": True}
        self.daemon({"dictionaryForPath:withDirSizes:": folder, "childrenDictionariesForPath:": [folder, {**folder, "path": "/"}]})
        self.assertEqual(len(self.json("ls", "-R", "/d")), 2)
        self.assertEqual(len(self.json("tree", "/d")["children"]), 2)
        self.assertEqual(self.ctl("select", "--files", "/d/d"), "")

    def test_children_nested_without_reason(self):
        nested = {"fileName": "x"}
        for _ in range(100):
            nested = {"fileName": "d", "isDirectory": True, "children": [nested]}
        self.daemon({"dictionaryForPath:withDirSizes:": {"fileName": "d", "isDirectory": True},
                     "childrenDictionariesForPath:": [nested]})
        self.assertEqual(len(self.ctl("tree", "/d").splitlines()), 102)

    def test_a_daemon_that_dies_in_the_middle_is_not_taken_for_an_answer(self):
        daemon = self.daemon({"setPausedMinutes:": None})
        daemon.answers["pausedMinutes"] = daemon.stop
        result = self.run_ctl("pause", "5")
        self.assertEqual(result.returncode, UNREACHABLE, result.stdout + result.stderr)


if __name__ == "__main__":
    unittest.main()
