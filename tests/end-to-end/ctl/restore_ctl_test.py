"""keldanectl's commands for stored files: finding them, restoring them, and reading what a repository holds."""

import datetime
import json
import os
import re
import signal
import subprocess
import threading
import unittest

from ctl_harness import DONE, NOT_TAKEN, USAGE
from owner_harness import DATE, KEY, REPOSITORY, OwnerCase


class Stored(OwnerCase):
    VERSIONS = [{"version": 12, "backupDate": DATE, "size": 2048},
                {"version": 3, "backupDate": DATE - datetime.timedelta(days=1), "size": 10}]

    def test_versions(self):
        self.first.answers["dictionaryForPath:"] = {"path": "/a/f", "versions": self.VERSIONS}
        self.assertEqual(self.ctl("versions", "/a/b/../f"), "     12  2026-11-20 12:00    2.0 KiB\n"
                                                            "      3  2026-11-19 12:00       10 B\n")
        self.assertEqual(self.first.frames[-1].arguments, ["/a/f"])
        self.assertEqual(self.json("versions", "/a/f"),
                         {"path": "/a/f", "versions": [
                             {"version": 12, "backupDate": "2026-11-20T12:00:00Z", "size": 2048},
                             {"version": 3, "backupDate": "2026-11-19T12:00:00Z", "size": 10}]})

    def test_versions_of_what_has_none(self):
        self.assertIn("knows nothing of /a", self.refusal("versions", "/a"))
        self.first.answers["dictionaryForPath:"] = {"path": "/a", "isDirectory": True}
        self.assertIn("a folder has none of its own", self.refusal("versions", "/a"))
        self.first.answers["dictionaryForPath:"] = {"path": "/a"}
        self.assertEqual(json.loads(self.run_ctl("versions", "/a", "--json").stdout), {"path": "/a", "versions": []})

    def test_find(self):
        entries = [{"path": "/a/letter\x1b.txt", "version": 2, "backupDate": DATE, "size": 10, "deleted": False},
                   {"path": "/b/letter", "version": 1, "backupDate": DATE, "size": 2048, "deleted": True}]
        self.answer(find={"entries": entries, "more": False})
        self.assertEqual(self.ctl("find", "letter*"),
                         "      2  2026-11-20 12:00       10 B  /a/letter\\x1b.txt\n"
                         "      1  2026-11-20 12:00    2.0 KiB  /b/letter  (deleted here)\n")
        self.assertEqual(self.only("find"), {"pattern": "letter*", "most": 1000})
        self.assertEqual(self.json("find", "letter*", "--most", "5")["entries"][1]["deleted"], True)
        self.assertEqual(self.asked("find")[-1]["most"], 5)
        self.answer(find={"entries": entries, "more": True})
        self.assertIn("There is more", self.run_ctl("find", "letter*").stderr)

    def test_find_nothing(self):
        self.answer(find={"entries": [], "more": False})
        self.assertEqual(self.refusal("find", "x"), "keldanectl: Nothing in the backup fits x.\n")
        self.assertEqual(self.run_ctl("find", "x", "--json").stdout, '{"entries":[],"more":false}\n')

    def test_failures(self):
        self.answer(failures={"entries": [{"path": "/a/f", "reason": "permission denied", "since": DATE}], "count": 3})
        self.assertEqual(self.ctl("failures"), "2026-11-20 12:00  /a/f: permission denied\n… and 2 files more.\n")
        self.assertEqual(self.json("failures")["entries"],
                         [{"path": "/a/f", "reason": "permission denied", "since": "2026-11-20T12:00:00Z"}])
        self.answer(failures={"entries": [], "count": 0})
        self.assertIn("Every file", self.ctl("failures"))


class Restore(OwnerCase):
    def job(self, *reports):
        """Sets up a job with a sequence of reports; the last one is repeated."""
        left = list(reports)
        self.answer(restore={"job": 7}, cancelRestore={},
                    restoreReport=lambda request: left.pop(0) if len(left) > 1 else left[0])

    DONE = {"status": "done", "files": 2, "filesDone": 2, "bytes": 2048, "bytesDone": 2048, "restored": 2, "skipped": 0,
            "problems": [], "message": "", "currentFile": ""}

    def test_it_restores(self):
        self.job({**self.DONE, "status": "waiting"}, {**self.DONE, "status": "running"}, self.DONE)
        self.assertEqual(self.ctl("restore", "/a", "/b/./c/"), "2 files restored, 2.0 KiB.\n")
        self.assertEqual(self.only("restore"), {"items": [{"path": "/a", "version": 0}, {"path": "/b/c", "version": 0}],
                                                "conflict": "keepBoth"})
        self.assertEqual(self.asked("restoreReport"), 3 * [{"job": 7}])

    def test_what_is_asked_for(self):
        self.job(self.DONE)
        for arguments, expected in ((["--version", "3"], {"items": [{"path": "/a", "version": 3}]}),
                                    (["--to", self.place + "/x/.."], {"target": self.place}),
                                    (["--replace"], {"conflict": "replace"}), (["--skip"], {"conflict": "skip"}),
                                    (["--keep-both"], {"conflict": "keepBoth"}),
                                    (["--before", "2026-11-20 12:00"], {"before": DATE})):
            self.ctl("restore", "/a", *arguments)
            self.assertLessEqual(expected.items(), self.asked("restore")[-1].items())

    def test_usage(self):
        for arguments in ([], ["/a", "--version", "0"], ["/a", "--version", "1", "--before", "now"],
                          ["/a", "--replace", "--skip"], ["/a", "--before", "soon"]):
            result = self.run_ctl("restore", *arguments)
            self.assertEqual(result.returncode, USAGE, arguments)
        self.assertEqual(self.asked("restore"), [])

    def test_json(self):
        self.job({**self.DONE, "status": "running"}, self.DONE)
        self.assertEqual(self.json("restore", "/a"), {"job": 7, **self.DONE})

    def test_problems_are_told_and_counted(self):
        report = {**self.DONE, "status": "doneWithProblems", "restored": 1, "skipped": 1, "problems": ["/a: no\x1b room"]}
        self.job(report)
        result = self.run_ctl("restore", "/a")
        self.assertEqual(result.returncode, NOT_TAKEN)
        self.assertEqual(result.stdout, "1 file restored, 2.0 KiB, 1 skipped, 1 with problems.\n")
        self.assertEqual(result.stderr, "keldanectl: /a: no\\x1b room.\n")
        self.assertEqual(json.loads(self.run_ctl("restore", "/a", "--json").stdout)["problems"], report["problems"])

    def test_a_job_that_fails_or_is_unknown(self):
        self.answer(restore={"error": "Nothing of /a is in the backup"})
        self.assertEqual(self.refusal("restore", "/a"), "keldanectl: Nothing of /a is in the backup.\n")
        self.job({**self.DONE, "status": "failed", "message": "The repository is gone."})
        self.assertIn("The repository is gone.", self.refusal("restore", "/a"))
        self.job({"status": "unknown"})
        self.assertIn("knows nothing of the restore any more", self.refusal("restore", "/a"))

    def test_the_first_interrupt_cancels(self):
        cancelled = threading.Event()
        self.answer(restore={"job": 7}, cancelRestore=lambda request: cancelled.set() or {},
                    restoreReport=lambda request: {**self.DONE, "status": "cancelled" if cancelled.is_set() else "running"})
        process = subprocess.Popen(self.command("restore", "/a"), env=self.environment, stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE, text=True)
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.stderr.close)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        self.eventually(lambda: self.asked("restoreReport"), "the first report")
        process.send_signal(signal.SIGINT)
        output, errors = process.communicate(timeout=60)
        self.assertEqual(process.returncode, NOT_TAKEN)
        self.assertIn("being cancelled", errors)
        self.assertIn("The restore was cancelled.", errors)
        self.assertIn("2 files restored", output)
        self.assertEqual(self.only("cancelRestore"), {"job": 7})

    def test_a_bar_on_a_terminal(self):
        done = threading.Event()
        running = {**self.DONE, "status": "running", "files": 4, "filesDone": 1, "bytes": 4096, "bytesDone": 1024,
                   "currentFile": "/a/some/file.txt"}
        self.answer(restore={"job": 7}, restoreReport=lambda request: self.DONE if done.is_set() else running)
        terminal = self.terminal("restore", "/a", columns=120)
        terminal.wait_for(r"\[[█░]+\] +\d+%  3 files, 3\.0 KiB to go")
        terminal.wait_for("/a/some/file.txt")
        done.set()
        terminal.wait_for(r"2 files restored, 2\.0 KiB\.")
        self.assertEqual(os.waitstatus_to_exitcode(terminal.wait()), DONE, terminal.text)


class Recover(OwnerCase):
    def setUp(self):
        super().setUp()
        self.key = self.secret_file("key", KEY)
        self.answer(recover={"started": True})

    def rebuilding(self, done, total=4):
        return {**REPOSITORY, "catalogue": "rebuilding", "catalogueDone": done, "catalogueTotal": total}

    def test_it_follows_the_rebuild_to_its_end(self):
        answers = [self.rebuilding(0), self.rebuilding(2), REPOSITORY]
        self.answer(repository=lambda request: answers.pop(0))
        text = self.ctl("recover", "/b", "--key", self.key)
        self.assertEqual(self.only("recover"), {"location": "/b", "key": KEY, "environment": {}, "options": {},
                                                "takeOver": False})
        self.assertIn("is known again (1,234 files; snapshots: 4)", text)
        self.assertEqual(answers, [])

    def test_json(self):
        self.assertEqual(self.json("recover", "/b", "--key", self.key, "--computer", "5", "--take-over")["snapshots"], 4)
        self.assertLessEqual({"computerNumber": 5, "takeOver": True}.items(), self.only("recover").items())

    def test_a_bar_on_a_terminal(self):
        done = threading.Event()
        self.answer(repository=lambda request: REPOSITORY if done.is_set() else self.rebuilding(1))
        terminal = self.terminal("recover", "/b", "--key", self.key)
        terminal.wait_for(r"\[█+░+\] +25%  3 of 4 snapshots to read")
        done.set()
        terminal.wait_for("known again")
        self.assertEqual(os.waitstatus_to_exitcode(terminal.wait()), DONE, terminal.text)

    def test_whose_files_are_meant(self):
        computers = [{"computerNumber": 3, "hostName": "laptop", "snapshots": 12, "newest": DATE},
                     {"computerNumber": 9, "hostName": "tower\x1b", "snapshots": 1, "newest": DATE}]
        self.answer(recover=lambda request: {"started": True} if "computerNumber" in request else {"computers": computers})
        result = self.run_ctl("recover", "/b", "--key", self.key)
        self.assertEqual(result.returncode, NOT_TAKEN)
        self.assertIn("--computer", result.stderr)
        self.assertRegex(result.stdout, r"(?m)^ +3  laptop +12  2026-11-20 12:00$")
        self.assertIn("tower\\x1b", result.stdout)
        self.assertEqual(json.loads(self.run_ctl("recover", "/b", "--key", self.key, "--json").stdout)["computers"][1]
                         ["computerNumber"], 9)
        terminal = self.terminal("recover", "/b", "--key", self.key)
        for text in ("x", "9"):
            terminal.wait_for(r"Which computer \(its number\)\? \Z")
            terminal.write(text + "\n")
            terminal.wait_for(re.escape(text) + "\r\n")
        self.assertEqual(os.waitstatus_to_exitcode(terminal.wait()), DONE, terminal.text)
        self.assertEqual(self.asked("recover")[-1]["computerNumber"], 9)

    def test_a_rebuild_that_fails(self):
        self.answer(repository={**REPOSITORY, "health": "unreachable", "detail": "The server does not answer"})
        self.assertEqual(self.refusal("recover", "/b", "--key", self.key), "keldanectl: The server does not answer.\n")

    def test_usage(self):
        for arguments in ([], ["/b"], ["--key", self.key], ["rest:http://a:b@c/", "--key", self.key]):
            self.refusal("recover", *arguments, status=USAGE)
        self.assertEqual(self.asked("recover"), [])

    def test_recover_mode_is_still_switched(self):
        self.first.answers["daemonState"] = {"recoverMode": True}
        self.assertEqual(self.ctl("recover", "on"), "Recover mode is on.\n")
        self.assertIn("setRecoverMode:", self.first.selectors())


if __name__ == "__main__":
    unittest.main()
