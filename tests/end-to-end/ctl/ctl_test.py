"""keldanectl with the daemon, without any, and with daemons that answer strangely."""

import os
import socket
import subprocess
import unittest

from ctl_harness import CTL, DEADLINE_PASSED, DONE, NOT_TAKEN, UNREACHABLE, USAGE, CtlCase
from harness import PATIENCE, Keldaned


class WithTheDaemon(CtlCase):
    def setUp(self):
        super().setUp()
        self.files = self.folder(".")
        self.keldaned = Keldaned(self)

    def test_status_has_every_value_of_the_state(self):
        text = self.ctl("status")
        for label in ("Daemon", "Account", "Server", "Computer", "Skin", "Status", "Backed up", "Pending",
                      "Backup needed", "Current file", "Restoring", "Quota", "Paused", "Automatic", "Low priority",
                      "Recover mode", "Service state", "Control flags"):
            self.assertRegex(text, rf"(?m)^{label} ")
        state = self.json("status")["state"]
        self.assertIn(len(state), (23, 24))  # the date of a good backup is missing before the first one
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

    @unittest.skipUnless(os.geteuid() == 0, "only root can be somebody else")
    def test_what_another_user_may_not_do_is_said(self):
        os.chmod(self.place, 0o755)
        os.chmod(self.socket, 0o777)
        other = self.as_another_user()
        for command in (["pause", "5"], ["automatic", "off"], ["low-priority", "on"], ["recover", "on"],
                        ["profile", "set", "a", "b"], ["type", "x", "backup"]):
            self.assertIn("did not take it", self.refusal(*command, **other))
        self.assertIn("did not take it", self.refusal("stop", "--yes", **other))
        secret = self.file("secret")
        os.chmod(secret, 0o600)
        self.assertIn("or may not tell you", self.refusal("add", secret, **other))
        self.assertIn("or may not tell you", self.refusal("ls", secret, **other))


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
