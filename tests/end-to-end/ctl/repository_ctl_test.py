"""keldanectl's commands for the repository, and its link to the daemon's second socket."""

import os
import socket
import subprocess
import threading
import unittest

from ctl_harness import DEADLINE_PASSED, DONE, NOT_TAKEN, UNREACHABLE, USAGE
from owner_harness import DATE, OwnerCase


class Repository(OwnerCase):
    def test_repository(self):
        text = self.ctl("repository")
        for line in (r"Location +/data/repository", r"Health +ready", r"Computer +3 \(laptop\)", r"Size +3\.0 MiB",
                     r"Holds +1,234 files in 4 snapshots", r"Last good backup +2026-11-20 12:00",
                     r"Last check +2026-11-20 12:00: No errors were found",
                     r"Last drill +2026-11-20 12:00: All came back \(90 files compared, 10 by their hashes, 0 failed\)",
                     r"Key +/data/key"):
            self.assertRegex(text, rf"(?m)^{line}$")
        self.assertEqual(self.only("repository"), {})
        self.assertEqual(self.json("repository")["lastDrill"], "2026-11-20T12:00:00Z")

    def test_a_repository_that_is_away(self):
        self.answer(repository={"location": "/mnt/disk/b", "health": "notConnected", "detail": "Plug the disk in.",
                                "catalogue": "rebuilding", "catalogueDone": 1, "catalogueTotal": 3})
        text = self.ctl("repository")
        for part in ("away: its disk is not connected", "Plug the disk in.", "Last good backup never", "1 of 3 snapshots"):
            self.assertIn(part, text)
        self.assertEqual(self.run_ctl("repository", "--probe").returncode, NOT_TAKEN)
        self.assertEqual(self.asked("repository")[-1], {"probe": True})

    def test_check(self):
        self.answer(check={"result": "No errors were found", "ok": True, "damagedFiles": [], "compared": 0, "hashed": 0,
                           "failed": []})
        for arguments, request in (([], {"mode": "structure"}), (["--data"], {"mode": "data"}),
                                   (["--drill"], {"mode": "drill", "sample": 100}),
                                   (["--drill", "--sample", "5"], {"mode": "drill", "sample": 5})):
            self.assertIn("No errors were found.\n", self.ctl("check", *arguments))
            self.assertEqual(self.asked("check")[-1], request)
        self.assertTrue(self.json("check", "--data")["ok"])
        self.assertEqual(self.run_ctl("check", "--data", "--drill").returncode, USAGE)

    def test_a_check_that_finds_something(self):
        self.answer(check={"result": "1 pack is damaged.", "ok": False, "damagedFiles": ["/a/f"], "compared": 9,
                           "hashed": 1, "failed": ["/a/g"]})
        result = self.run_ctl("check", "--drill")
        self.assertEqual(result.returncode, NOT_TAKEN)
        self.assertEqual(result.stdout, "1 pack is damaged.\n9 files compared byte by byte, 1 by their hashes.\n")
        self.assertEqual(result.stderr, "keldanectl: /a/f is damaged in the backup.\n"
                                        "keldanectl: /a/g did not come back as it was stored.\n")
        answer = self.json("check", "--drill", status=NOT_TAKEN)
        self.assertEqual((answer["ok"], answer["failed"]), (False, ["/a/g"]))

    def test_a_long_check_outlives_the_deadline(self):
        go_on = threading.Event()
        self.addCleanup(go_on.set)
        self.answer(check=lambda request: {"ok": go_on.wait(30), "result": "Done"})
        timer = threading.Timer(1, go_on.set)
        timer.start()
        self.addCleanup(timer.cancel)
        self.assertEqual(self.ctl("--deadline", "0.2", "check"), "Done.\n")

    def test_settings(self):
        values = {"keepDeletedDays": 90, "quotaMB": 0, "alertDays": 3}

        def change(request):
            values.update(request)
            return dict(values)
        self.answer(settings=change)
        self.assertEqual(self.json("settings"), values)
        self.assertEqual(self.only("settings"), {})
        text = self.ctl("settings", "--keep-deleted", "30", "--quota", "2048", "--alert-after", "1")
        self.assertEqual(self.asked("settings")[-1], {"keepDeletedDays": 30, "quotaMB": 2048, "alertDays": 1})
        for part in ("30 days", "2.0 GiB", "1 day without"):
            self.assertIn(part, text)
        self.assertNotIn("Rests", text, "an older daemon never rests")
        values.update(restBelowPercent=30, restOnMetered=1, restInPowerSaver=0)
        text = self.ctl("settings", "--rest-below", "0", "--rest-on-metered", "off", "--rest-in-power-saver", "on")
        self.assertEqual(self.asked("settings")[-1], {"restBelowPercent": 0, "restOnMetered": 0, "restInPowerSaver": 1})
        for part in ("battery below +never", "metered network +no", "power-saver mode +yes"):
            self.assertRegex(text, part)
        self.assertEqual(self.run_ctl("settings", "--rest-below", "101").returncode, USAGE)
        self.ctl("settings", "--quota", "0")
        self.assertEqual(self.asked("settings")[-1], {"quotaMB": 0})
        self.assertEqual(self.run_ctl("settings", "--quota", "much").returncode, USAGE)

    def test_status_tells_of_the_repository(self):
        self.assertNotIn("Repository", self.ctl("status"))
        self.first.answers["daemonState"] = {"health": "full", "lastGoodBackup": DATE, "failureCount": 2}
        text = self.ctl("status")
        self.assertRegex(text, r"(?m)^Repository +full: no room is left")
        self.assertRegex(text, r"(?m)^Last good +2026-11-20 12:00$")
        self.assertRegex(text, r"(?m)^Failing +2 files \(keldanectl failures\)$")
        self.assertNotRegex(text, r"(?m)^health")
        self.assertEqual(self.json("status")["state"]["health"], "full")


class Links(OwnerCase):
    COMMANDS = (["find", "x"], ["failures"], ["repository"], ["check"], ["settings"], ["restore", "/a"],
                ["setup", "--repository", "/a"], ["key", "export", "/none/key"], ["key", "sheet"])

    def test_the_daemon_has_not_this_socket(self):
        self.owner.stop()
        os.unlink(self.owner.path)
        for command in self.COMMANDS:
            self.assertEqual(self.refusal(*command, status=UNREACHABLE),
                             f"keldanectl: The backup daemon cannot be reached at {self.socket}.owner.\n")

    @unittest.skipUnless(os.geteuid() == 0, "only root can be somebody else")
    def test_the_socket_is_another_users(self):
        os.chmod(self.owner.path, 0o600)
        os.chmod(self.place, 0o755)
        self.assertEqual(self.refusal("repository", **self.as_another_user()),
                         "keldanectl: Only root and the daemon's own user may do this.\n")

    def test_the_daemon_says_why_not(self):
        for name in ("find", "failures", "repository", "check", "settings", "restore", "exportKey", "setUpRepository"):
            self.answer(**{name: {"error": "It\x1b is closed"}})
        for command in self.COMMANDS:
            self.assertEqual(self.refusal(*command), "keldanectl: It\\x1b is closed.\n")

    def test_answers_that_are_none(self):
        for answer in (None, "text", 7, ["list"]):
            self.answer(failures=answer)
            self.assertIn("does not know how", self.refusal("failures"))
        for name in ("find", "failures", "repository", "settings", "check", "exportKey"):
            self.answer(**{name: {key: -1 for key in ("entries", "count", "health", "location", "key", "ok", "more")}})
        for command in self.COMMANDS:
            self.assertIn(self.run_ctl(*command).returncode, (DONE, NOT_TAKEN), command)

    def test_the_daemon_dies_in_the_middle(self):
        self.answer(check=lambda request: self.owner.stop())
        self.assertIn("has hung up", self.refusal("check", status=UNREACHABLE))

    def test_a_daemon_that_does_not_answer(self):
        self.owner.stop()
        os.unlink(self.owner.path)
        with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as listener:
            listener.bind(self.owner.path)
            listener.listen()
            sentence = self.refusal("--deadline", "0.2", "repository", status=DEADLINE_PASSED)
            self.assertIn("has not answered for 0.2 seconds", sentence)

    def test_each_command_has_help(self):
        for command in (["setup"], ["versions"], ["find"], ["failures"], ["restore"], ["repository"], ["check"],
                        ["settings"], ["recover"], ["key", "export"], ["key", "import"], ["key", "sheet"],
                        ["key", "verify"], ["key", "passphrase"]):
            self.assertIn("Usage: keldanectl " + " ".join(command), self.ctl(*command, "--help"))

    def test_the_shells_complete_them(self):
        script = self.file("completion", self.ctl("completion", "bash"))

        def complete(*words):
            probe = (f"source '{script}'; compopt() {{ echo files; }}; COMP_WORDS=({' '.join(map(repr, words))}); "
                     f"COMP_CWORD={len(words) - 1}; _keldanectl; printf '%s\\n' \"${{COMPREPLY[@]}}\"")
            return subprocess.run(["bash", "-c", probe], capture_output=True, check=True, text=True).stdout.split()
        self.assertEqual(complete("keldanectl", "key", "ex"), ["export"])
        self.assertEqual(complete("keldanectl", "key", "export", "a"), ["files"])
        self.assertEqual(complete("keldanectl", "restore", "/a", "--re"), ["files", "--replace"])
        self.assertEqual(complete("keldanectl", "check", "--d"), ["--data", "--drill"])


if __name__ == "__main__":
    unittest.main()
