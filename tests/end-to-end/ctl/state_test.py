"""The daemon's and keldanectl's reports on the work in progress, on real files."""

import json
import os
import subprocess
import unittest

from ctl_harness import DONE, NOT_TAKEN, CtlCase
from harness import PATIENCE, Keldaned

RESTS = 5
ENDLESS = 10 << 40  # bytes of a sparse file that takes longer to read than any test


class State(CtlCase):
    def setUp(self):
        super().setUp()
        self.files = self.folder(".")
        self.keldaned = Keldaned(self)

    def state(self):
        return self.json("status")["state"]

    def says(self, path):
        return self.json("ls", path)[0]["state"]

    def endless(self, name):
        path = self.file(name, "")
        os.truncate(path, ENDLESS)
        return path

    # --- Watching until everything is stored ---

    def test_watch_ends_when_all_that_was_asked_for_is_stored(self):
        for i in range(2000):
            self.file(f"many/{i % 40}/{i}", "x")
        self.ctl("add", self.folder("many"))
        self.ctl("watch", "--until-done")
        state = self.state()
        self.assertEqual((state["backedUpFileCount"], state["pendingFileCount"]), (2000, 0))
        self.assertEqual(state["statusString"], "Up to date")

    def test_watch_fails_with_a_list_when_something_has_failed(self):
        good, bad = self.file("d/good"), self.file("d/bad\n")
        os.chmod(bad, 0)
        self.ctl("add", self.folder("d"))
        result = self.run_ctl("watch", "--until-done")
        self.assertEqual(result.returncode, NOT_TAKEN, result.stdout + result.stderr)
        self.assertRegex(result.stdout, r"(?m)^.*/d/bad\\n: It cannot be read\.$")
        self.assertEqual(result.stderr, "keldanectl: 1 file could not be backed up.\n")
        self.assertEqual(self.says(good), "Backed up")
        events = [json.loads(line) for line in
                  self.run_ctl("watch", "--until-done", "--json").stdout.splitlines()]
        self.assertEqual(events[-1]["event"], "failures")
        self.assertEqual([entry["path"] for entry in events[-1]["failures"]["entries"]], [bad])
        self.ctl("remove", bad)
        self.ctl("watch", "--until-done")

    def test_watch_ends_when_what_waits_is_not_backed_up_by_itself(self):
        path = self.file("a")
        self.ctl("automatic", "off")
        self.ctl("add", path)
        result = self.run_ctl("watch", "--until-done")
        self.assertEqual(result.returncode, RESTS, result.stdout + result.stderr)
        self.assertEqual(result.stderr, "keldanectl: Not all is backed up, and the daemon rests: "
                                        "Automatic backup is off: 1 file waits.\n")
        self.ctl("asap", path)
        self.ctl("watch", "--until-done")
        self.assertEqual(self.says(path), "Backed up")

    def test_watch_waits_through_a_pause(self):
        self.ctl("pause", "1")
        self.ctl("add", self.file("a"))
        process = subprocess.Popen(self.command("watch", "--until-done"), env=self.environment,
                                   stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        self.addCleanup(process.stdout.close)
        self.assertIn("Paused", process.stdout.readline())
        self.ctl("resume")
        self.assertEqual(process.wait(PATIENCE), DONE)

    # --- A file that takes very long ---

    def test_a_file_that_takes_for_ever_can_be_stopped_and_holds_up_nobody(self):
        large, other, preferred = self.endless("d/large"), self.file("d/other"), self.file("e")
        self.ctl("add", self.folder("d"))
        self.eventually(lambda: self.says(large).startswith("Being backed up: "), "the large file")
        self.eventually(lambda: self.says(other) == "Backed up", "the other one")
        self.assertEqual(self.state()["currentBackupFile"], large)
        self.ctl("asap", preferred)
        self.eventually(lambda: self.says(preferred) == "Backed up", "the preferred one")
        self.ctl("pause", "5")
        self.eventually(lambda: self.state()["currentBackupFile"] == "", "the pause")
        self.ctl("resume")
        self.eventually(lambda: self.state()["currentBackupFile"] == large, "the large file again")
        self.ctl("remove", large)
        self.ctl("watch", "--until-done")
        self.assertEqual(self.state()["backedUpFileCount"], 2)
        self.assertEqual(self.says(large), "Not selected for backup")

    # --- Deleted files ---

    def test_a_deleted_folder_is_listed_with_its_backups(self):
        path = self.file("d/gone/deep/x")
        self.backed_up(self.folder("d"))
        subprocess.run(["rm", "-r", self.folder("d/gone")], check=True)
        gone = "Deleted here, still in the backup"
        self.assertRegex(self.ctl("ls", self.folder("d")), r"(?m)^d.*m.* still in the backup.* gone/$")
        self.assertRegex(self.ctl("ls", os.path.dirname(path)), r" still in the backup.* x\n\Z")
        self.assertEqual(self.json("ls", self.folder("d"))[0]["state"], gone)
        self.assertEqual([node["fileName"] for node in self.json("ls", "-R", self.folder("d"))], ["gone", "deep", "x"])
        self.assertEqual(len(self.ctl("tree", self.folder("d")).splitlines()), 4)
        self.ctl("watch", "--until-done")
        self.assertEqual(self.json("ls", self.folder("d"))[0]["state"], gone)

    def test_no_rule_is_kept_for_what_is_not_there(self):
        path = os.path.join(self.files, "none")
        for command in ("add", "remove", "asap"):
            self.assertEqual(self.run_ctl(command, path).returncode, NOT_TAKEN)
        self.file("none")
        self.assertEqual(self.says(path), "Not selected for backup")
        self.assertEqual(self.json("why", path)["reasons"][0]["kind"], "none")

    # --- Reasons ---

    def test_why(self):
        path = self.file("d/a.tmp")
        self.assertEqual(self.ctl("why", path), f"{path}: Not selected for backup\n  decides    No rule includes it.\n")
        self.backed_up(self.folder("d"))
        self.assertRegex(self.ctl("why", path), r"\A.*: Backed up\n  decides    The rule of the folder .*/d includes it\.\n"
                         r"  stored     Its newest version in the backup is 1, of \d{4}-\d\d-\d\d \d\d:\d\d\.\n\Z")
        self.ctl("type", "tmp", "exclude")
        rows = self.ctl("why", path).splitlines()
        self.assertEqual(rows[1], "  decides    The rule for files of the type .tmp excludes it.")
        self.assertRegex(rows[2], r"^  outranked  The rule of the folder .* includes it\.$")
        self.assertEqual([reason["kind"] for reason in self.json("why", path)["reasons"]], ["type", "folder"])
        self.assertIn("/.keldane-restore-1 and all below it is kept out of the backup.",
                      self.ctl("why", self.folder(".keldane-restore-1")))
        self.assertIn("knows nothing of", self.refusal("why", os.path.join(self.files, "none")))

    def test_a_daemon_that_does_not_tell_why(self):
        self.keldaned.terminate()
        self.daemon({"dictionaryForPath:": {"fileName": "a", "path": "/a", "state": "New"}})
        self.assertEqual(self.refusal("why", "/a"), "keldanectl: This daemon does not tell why.\n")


if __name__ == "__main__":
    unittest.main()
