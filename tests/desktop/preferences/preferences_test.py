"""The preferences program in its window, with the daemon and with one that never answers."""

import os
import re
import subprocess
import time
import unittest

import desktop
import locales
from desktop import Atspi, act, eventually, is_on, set_text, set_value, value_of
from harness import BUNDLE, PATIENCE, Keldaned
from preferences_window import AWAY, EMPTY, PREFERENCES, SILENT, PreferencesCase
from recording_daemon import ENABLED, node


class WithTheDaemon(PreferencesCase):
    def setUp(self):
        super().setUp()
        self.letter = self.file("home/Documents/letter.txt", "x" * 2048)
        self.accounts = self.file("home/Documents/accounts.csv")
        self.file("home/notes")
        self.keldaned = Keldaned(self)

    # --- The daemon's state ---

    def test_the_state_is_shown(self):
        self.ctl("profile", "set", "UserEmail", "someone@example.org")
        self.ctl("profile", "set", "QuotaMB", "1")
        self.open()
        self.shows("Up to date")
        self.shows("Nothing is waiting to be backed up.")
        self.shows("someone@example.org")
        self.shows("0 B of 1.0 MiB")
        self.ctl("add", self.letter)
        self.shows("1 file, 2.0 KiB")
        self.assertEqual(value_of(self.program.find("progress bar", "Progress of the backup")), 1)

    def test_progress_is_shown_while_a_backup_goes_on(self):
        self.ctl("pause", "5")
        self.ctl("add", os.path.join(self.home, "Documents"))
        self.open()
        self.shows("2 files, 2.0 KiB to go")
        self.assertEqual(value_of(self.program.find("progress bar", "Progress of the backup")), 0)
        self.ctl("resume")
        self.shows("Nothing is waiting to be backed up.")
        self.assertEqual(value_of(self.program.find("progress bar", "Progress of the backup")), 1)

    def test_a_large_file_has_a_rate_and_a_time_left(self):
        large = self.file("home/large")
        os.truncate(large, 8 << 30)
        self.open("--page", "rules")
        self.row("large")
        self.tick("large")
        self.go("Overview")
        self.program.find("label", re.compile(r"\A1 file, \S+ GiB to go; \S+ [KMG]iB/s, .+ left\Z"))
        self.shows(large)
        self.assertLess(value_of(self.program.find("progress bar", "Progress of the backup")), 1)

    def test_pause_and_resume(self):
        self.open()
        self.shows("Up to date")
        resume = self.program.find("push button", "Resume")
        self.assertFalse(is_on(resume, "sensitive"))
        set_value(self.program.find("spin button", "Minutes to pause"), 90)
        act(self.program.find("push button", "Pause"))
        self.shows("Paused for 1 h 30 min")
        self.assertIn("yes, for 1 h 30 min", self.ctl("status"))
        eventually(lambda: is_on(resume, "sensitive"), "the button to resume")
        act(resume)
        self.shows("Up to date")
        self.assertRegex(self.ctl("status"), r"(?m)^Paused +no$")

    def test_the_switches_show_what_the_daemon_says(self):
        self.open()
        self.shows("Up to date")
        for name, label, option in (("Back up what is ticked without being told", "Automatic", "automatic"),
                                    ("Leave the machine to everything else", "Low priority", "low-priority")):
            switch = self.program.find("check box", name)
            for position in ("on", "off", "on"):
                if is_on(switch, "checked") != (position == "on"):
                    self.click(switch)
                eventually(lambda: re.search(rf"(?m)^{label} +{position}$", self.ctl("status")), f"{label} {position}")
            self.ctl(option, "off")
            eventually(lambda: not is_on(switch, "checked"), f"{label} off by somebody else")

    # --- The rules ---

    def test_the_home_folder_is_open_at_first_and_others_when_they_are_looked_into(self):
        self.open("--page", "rules")
        self.row("notes")
        self.assertEqual(self.names(), [self.home, "Documents", "notes"])
        self.expand("Documents")
        self.row("letter.txt")
        self.assertEqual(self.names(), [self.home, "Documents", "accounts.csv", "letter.txt", "notes"])
        self.assertEqual(self.text_in(self.row("letter.txt")[3]), "2.0 KiB")
        self.expand("Documents")
        eventually(lambda: len(self.names()) == 3, "a closed folder")
        self.file("home/Documents/new")
        self.expand("Documents")
        self.row("new")

    def test_an_empty_folder_can_be_looked_into(self):
        empty = self.folder("home/empty")
        self.open("--page", "rules")
        self.row("notes")
        self.expand("empty")
        self.row(EMPTY)
        self.assertEqual(self.names(), [self.home, "Documents", "empty", EMPTY, "notes"])
        with open(os.path.join(empty, "later"), "w", encoding="utf-8"):
            pass
        self.tick("empty")
        self.wait_for_box("later", True)
        self.assertNotIn(EMPTY, self.names())

    def test_a_tick_includes_the_file_and_its_folder_is_ticked_partly(self):
        self.open("--page", "rules")
        self.expand_to_letter()
        self.assertIs(self.is_ticked("letter.txt"), False)
        self.tick("letter.txt")
        self.wait_for_box("letter.txt", True)
        self.wait_for_state("Documents", "Partly selected for backup")
        self.wait_for_state(self.home, "Partly selected for backup")
        self.assertIs(self.is_ticked("Documents"), False)
        self.assertIs(self.is_ticked("accounts.csv"), False)
        self.wait_for_state("letter.txt", "Backed up")
        self.assertRegex(self.text_in(self.row("letter.txt")[4]), r"\A\d{4}-\d\d-\d\d \d\d:\d\d\Z")
        self.assertIn("Backed up", self.ctl("ls", os.path.dirname(self.letter)))

    def test_a_tick_on_a_folder_is_seen_on_what_is_in_it(self):
        self.open("--page", "rules")
        self.expand_to_letter()
        self.tick("Documents")
        for name in ("Documents", "letter.txt", "accounts.csv"):
            self.wait_for_box(name, True)
        self.tick("letter.txt")
        self.wait_for_box("letter.txt", False)
        self.wait_for_state("Documents", "Backed up, not all of it")
        self.wait_for_state("letter.txt", "Not selected for backup")
        self.tick("Documents")
        self.wait_for_box("accounts.csv", False)

    def test_what_others_change_is_shown(self):
        self.open("--page", "rules")
        self.expand_to_letter()
        self.ctl("add", self.letter)
        self.wait_for_box("letter.txt", True)
        self.file("home/Documents/later")
        self.ctl("add", self.accounts)
        self.row("later")
        os.unlink(os.path.join(self.home, "Documents", "later"))
        self.ctl("remove", self.letter)
        self.ctl("pause", "1")
        eventually(lambda: "later" not in self.names(), "a file that has gone")

    def test_another_folder(self):
        self.open("--page", "rules")
        self.row("notes")
        act(self.program.find("push button", "Open Another Folder…"))
        self.type("Open Another Folder", "/")  # this opens the field for a path
        # Nothing more is typed, because the field's completion would mix its own text in.
        set_text(self.field_of("Open Another Folder"), os.path.join(self.home, "Documents"))
        self.press("Open Another Folder", "Return")
        self.row("letter.txt")
        self.assertEqual(self.names(), [os.path.join(self.home, "Documents"), "accounts.csv", "letter.txt"])

    def expand_to_letter(self):
        self.row("notes")
        self.expand("Documents")
        self.row("letter.txt")

    # --- The daemon's absence ---

    def test_a_daemon_that_goes_and_comes_back(self):
        self.ctl("profile", "set", "UserEmail", "someone@example.org")
        self.open("--page", "rules")
        self.expand_to_letter()
        self.go("Overview")
        self.keldaned.kill()
        self.shows(AWAY)
        self.shows("someone@example.org (remembered)")
        self.assertFalse(is_on(self.program.find("push button", "Pause"), "sensitive"))
        self.keldaned.start()
        self.shows("Up to date")
        self.shows("someone@example.org")
        self.go("Rules")
        self.tick("letter.txt")
        self.wait_for_state("letter.txt", "Backed up")


class WithStrangeDaemons(PreferencesCase):
    def test_a_setting_that_is_not_taken_is_put_back(self):
        self.daemon({"daemonState": {"statusString": "Stubborn"}, "automaticMode": True})
        self.open()
        self.shows("Stubborn")
        switch = self.program.find("check box", "Back up what is ticked without being told")
        self.click(switch)
        self.shows("The daemon did not take it: only root and the daemon's own user may change this.")
        eventually(lambda: is_on(switch, "checked"), "the switch as it was")

    def test_a_rule_that_is_not_taken_is_told(self):
        path = self.file("home/barred")
        answers = {"dictionaryForPath:": lambda each: node(each, ENABLED, os.path.isdir(each), "Held back"),
                   "childrenDictionariesForPath:": lambda each: [node(path)] if each == self.home else []}
        self.daemon({"daemonState": {"statusString": "Stubborn"}, **answers})
        self.open("--page", "rules")
        self.tick("barred")
        self.shows(f"The daemon did not take {path}: Held back.")
        self.assertIs(self.is_ticked("barred"), False)

    def test_many_files_do_not_hold_the_window(self):
        names = [f"{number:06}" for number in range(20000)]
        self.daemon({"daemonState": {"statusString": "Busy"},
                     "dictionaryForPath:": lambda each: node(each, ENABLED, True),
                     "childrenDictionariesForPath:":
                         lambda each: [node(f"{each}/{name}") for name in names] if each == self.home else []})
        self.open("--page", "rules")
        another = self.program.find("push button", "Open Another Folder…")
        table = self.program.find("tree table", self.TREE)
        scroller = eventually(lambda: next((node for node in desktop.walk(table.get_parent())
                                            if "Value" in node.get_interfaces()
                                            and Atspi.Value.get_maximum_value(node) > 1000), None), "a long list")
        end = time.monotonic() + PATIENCE
        while Atspi.Value.get_maximum_value(scroller) < 20 * len(names):  # a row has more pixels
            begin = time.monotonic()
            self.assertTrue(desktop.has_size(another))
            self.assertLess(time.monotonic() - begin, 1)
            self.assertLess(begin, end)

    def test_one_that_never_answers_does_not_hold_the_window(self):
        self.daemon(fault="never")
        self.open()
        self.shows("Looking for the backup daemon…")
        silent = self.shows(SILENT)
        for number in range(20):
            begin = time.monotonic()
            self.assertTrue(desktop.has_size(silent))
            self.assertLess(time.monotonic() - begin, 1, number)
        self.close()
        self.assertEqual(self.program.process.wait(PATIENCE), 0)


class ByTheProtocol(PreferencesCase):
    def test_it_stands_what_a_client_must(self):
        kit = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "..", "conformance", "keldane-conformance")
        result = subprocess.run([kit, "client", "--profile", "preferences", "--bundle", BUNDLE, "--", PREFERENCES, "--bundle",
                                 "{bundle}"], capture_output=True, text=True, check=False)
        self.assertEqual(result.returncode, 0, result.stdout)


class WithoutADaemon(PreferencesCase):
    def test_one_that_comes_later_is_found(self):
        self.file("home/notes")
        self.open()
        self.shows(AWAY)
        Keldaned(self)
        self.shows("Up to date")
        self.go("Rules")
        self.row("notes")

    def test_one_that_hangs_later_and_then_lets_go(self):
        self.file("home/notes")
        keldaned = Keldaned(self)
        self.open()
        self.shows("Up to date")
        keldaned.kill()
        os.unlink(self.socket)
        daemon = self.daemon(fault="never")
        self.shows(SILENT)
        daemon.stop()
        keldaned.start()
        self.shows("Up to date")

    def test_the_program_ends_with_its_window(self):
        self.open()
        self.shows(AWAY)
        self.close()
        self.assertEqual(self.program.process.wait(PATIENCE), 0)

    def test_german(self):
        german = locales.made(self.place, "de")
        self.open(**german)
        self.shows("Der Sicherungsdienst ist nicht da; es wird auf ihn gewartet.")
        self.go("Regeln", "Keldane-Einstellungen")
        self.shows("Anderen Ordner öffnen …")
        help_text = subprocess.run([PREFERENCES, "--help"], env={**self.environment, **german}, check=True,
                                   capture_output=True, text=True, timeout=PATIENCE).stdout
        self.assertIn("Sicherungsdienst", help_text)
        self.assertIn("--bundle", help_text)

    def test_a_bundle_that_says_nothing(self):
        self.edit_info(DaemonPath=None)
        self.open()
        self.shows("Nothing says where the backup daemon is.")
        act(self.program.find("push button", re.compile("OK")))
        self.assertEqual(self.program.process.wait(PATIENCE), 3)


if __name__ == "__main__":
    unittest.main()
