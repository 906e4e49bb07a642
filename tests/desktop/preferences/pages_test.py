"""The pages of the preferences program in its window, with the installed daemon, which stores with restic."""

import json
import os
import re
import subprocess
import unittest

from desktop import Atspi, act, eventually, has_size, is_on, set_value, value_of
from harness import Keldaned
from preferences_window import PreferencesCase

STORED = os.path.join(os.environ["KELDANE_BUILD"], "bin", "keldaned")
SETUP = "Set Up the Backup"


class StoringKeldaned(Keldaned):
    """The daemon as it is installed."""

    def start(self):
        self.command[0] = STORED
        super().start()


class PagesCase(PreferencesCase):
    def setUp(self):
        super().setUp()
        self.letter = self.file("home/Documents/letter.txt", "first")
        self.documents = os.path.dirname(self.letter)
        self.keldaned = StoringKeldaned(self, "--batch-delay", "1")

    def back_up(self, *paths):
        self.ctl("add", *paths)
        self.ctl("watch", "--until-done")

    def button(self, name):
        return self.program.find("push button", name)

    def content(self, path):
        with open(path, encoding="utf-8") as stream:
            return stream.read()

    def restore(self, result):
        eventually(lambda: is_on(self.button("Restore"), "sensitive"), "a selection")
        act(self.button("Restore"))
        self.shows(re.compile(result))


class Overview(PagesCase):
    def test_it_says_that_all_is_backed_up_when_it_is(self):
        self.back_up(self.letter)
        self.open()
        self.shows(re.compile(r"\AThe only file is backed up, last (just now|1 minute ago)\.\Z"))
        self.shows(re.compile(r"\ALast good backup: \d{4}-\d\d-\d\d \d\d:\d\d, "))

    def test_nothing_chosen_leads_to_the_rules(self):
        self.open()
        self.shows("Nothing is chosen for the backup yet.")
        act(self.button("Choose Files…"))
        self.shows("What is ticked is backed up.")

    def test_what_file_managers_show_is_switched_there(self):
        def options():
            return json.loads(self.ctl("config", "file-manager", "--json"))
        self.ctl("config", "file-manager", "columns", "off")
        self.open()
        boxes = {name: self.program.find("check box", title) for name, title in
                 (("emblems", "Show emblems on files and folders"),
                  ("columns", "Offer the columns of the backup in lists"),
                  ("restore-entries", "Offer in menus to restore files"))}
        eventually(lambda: not is_on(boxes["columns"], "checked"), "what the command has set")
        for name in boxes:
            before = options()
            self.click(boxes[name])
            eventually(lambda: options() == {**before, name: not before[name]}, f"the switch {name}")

    def test_what_holds_the_backup_up_is_mended_by_its_button(self):
        self.back_up(self.letter)
        self.ctl("pause", "10")
        self.open()
        self.shows("The backup is paused for 10 min.")
        act(self.button("Go On Now"))
        self.shows(re.compile(r"\AThe only file is backed up"))
        self.assertRegex(self.ctl("status"), r"(?m)^Paused +no$")

    @unittest.skipIf(os.geteuid() == 0, "root can read everything")
    def test_files_that_cannot_be_stored_are_listed(self):
        os.chmod(self.letter, 0)
        self.back_up(self.letter)
        self.open()
        self.shows("1 file could not be backed up.")
        self.shows(re.compile(re.escape(self.letter) + ": "))


class Restore(PagesCase):
    def test_a_version_of_a_file_is_chosen_by_the_option(self):
        self.TREE = "Files and versions"
        self.back_up(self.letter)
        self.file("home/Documents/letter.txt", "second, which is longer")
        eventually(lambda: self.ctl("versions", self.letter).count("\n") == 2, "a second version")
        self.open("--restore", self.letter)
        self.shows(f"Versions of {self.letter} in the backup:")
        oldest = self.names()[-1]
        self.tick(oldest)
        self.restore(r"\A1 file restored, 5 B\.\Z")
        eventually(lambda: len(os.listdir(self.documents)) == 2, "the restored file beside what is there")
        other = next(name for name in os.listdir(self.documents) if name != "letter.txt")
        self.assertEqual(self.content(os.path.join(self.documents, other)), "first")
        self.assertEqual(self.content(self.letter), "second, which is longer")
        self.button("Open the Folder")

    def test_what_was_deleted_from_a_folder_is_found_by_the_option(self):
        self.TREE = "Files and versions"
        self.back_up(self.documents)
        os.unlink(self.letter)
        eventually(lambda: "still in the backup" in self.ctl("ls", self.documents), "a daemon that knows of it")
        self.open("--restore-missing", self.documents)
        self.shows(f"Deleted from {self.documents}, and in the backup:")
        self.assertEqual(self.names(), ["letter.txt"])
        self.tick("letter.txt")
        self.restore(r"\A1 file restored, 5 B\.\Z")
        self.assertEqual(self.content(self.letter), "first")

    def test_nothing_deleted_is_said(self):
        self.back_up(self.documents)
        self.open("--restore-missing", self.documents)
        self.shows(f"Nothing that is in the backup was deleted from {self.documents}.")

    def test_the_tree_shows_the_backup_and_what_is_ticked_there_is_restored(self):
        self.TREE = "Files in the backup"
        self.file("home/never")
        self.back_up(self.documents)
        os.unlink(self.letter)
        eventually(lambda: "still in the backup" in self.ctl("ls", self.documents), "a daemon that knows of it")
        self.open("--page", "restore")
        self.row("Documents")
        self.assertNotIn("never", self.names())
        self.expand("Documents")
        self.wait_for_state("letter.txt", "Deleted here, still in the backup")
        self.tick("letter.txt")
        self.wait_for_box("letter.txt", True)
        self.shows("1 item is selected.")
        self.restore(r"\A1 file restored, 5 B\.\Z")
        self.assertEqual(self.content(self.letter), "first")

    def test_a_folder_is_selected_with_all_in_it_and_partly_with_a_part(self):
        self.TREE = "Files in the backup"
        self.file("home/Documents/other")
        self.back_up(self.documents)
        self.open("--page", "restore")
        self.row("Documents")
        self.tick("Documents")
        self.wait_for_box("Documents", True)
        self.expand("Documents")
        self.wait_for_box("other", True)
        self.tick("other")
        self.wait_for_box("other", False)
        eventually(lambda: is_on(self.box("Documents"), "indeterminate"), "a folder that is selected partly")
        self.assertIs(self.is_ticked("letter.txt"), True)

    def test_the_time_line_goes_back_to_what_was_there(self):
        self.TREE = "Files in the backup"
        gone = self.file("home/Documents/gone.txt", "gone")
        self.back_up(self.documents)
        os.unlink(gone)
        self.file("home/Documents/letter.txt", "second, which is longer")
        self.file("home/Documents/new.txt", "new")
        eventually(lambda: self.ctl("versions", self.letter).count("\n") == 2
                   and "Backed up" in self.ctl("ls", self.documents), "a second backup")
        self.open("--page", "restore")
        self.row("Documents")
        line = self.program.find("slider", "Backups in the course of time")
        eventually(lambda: is_on(line, "sensitive"), "backups on the line")
        set_value(line, 0)  # the earliest backup
        self.shows(re.compile(r"\AThe backup as it was on \d{4}-\d\d-\d\d \d\d:\d\d\. "))
        self.expand("Documents")
        self.wait_for_state("gone.txt", "Deleted here, still in the backup")
        self.assertEqual(self.text_in(self.row("letter.txt")[3]), "5 B")
        self.assertNotIn("new.txt", self.names())
        self.tick("gone.txt")
        self.wait_for_box("gone.txt", True)
        self.restore(r"\A1 file restored, 4 B\.\Z")
        self.assertEqual(self.content(gone), "gone")
        set_value(line, 1 << 40)
        self.shows("What is ticked is restored.")
        self.expand("Documents")
        self.row("new.txt")

    def test_a_version_is_looked_at_in_a_copy_that_goes_with_the_window(self):
        self.TREE = "Files and versions"
        applications = os.path.join(self.environment["XDG_DATA_HOME"], "applications")
        os.makedirs(applications)
        seen = os.path.join(self.place, "seen")
        with open(os.path.join(applications, "viewer.desktop"), "w", encoding="utf-8") as stream:
            stream.write("[Desktop Entry]\nType=Application\nName=Viewer\nMimeType=text/plain;\n"
                         f"Exec=sh -c 'realpath \"$1\" > {seen}.new; cat \"$1\" >> {seen}.new; mv {seen}.new {seen}' sh %f\n")
        with open(os.path.join(applications, "mimeapps.list"), "w", encoding="utf-8") as stream:
            stream.write("[Default Applications]\ntext/plain=viewer.desktop\n")
        os.chmod(self.letter, 0o4755)
        self.back_up(self.letter)
        self.file("home/Documents/letter.txt", "second, which is longer")
        eventually(lambda: self.ctl("versions", self.letter).count("\n") == 2, "a second version")
        looks = os.path.join(self.environment["XDG_CACHE_HOME"], "keldane", "looks")
        os.makedirs(os.path.join(looks, "left", "behind"))
        self.open("--restore", self.letter)
        self.shows(f"Versions of {self.letter} in the backup:")
        self.tick(self.names()[-1])
        eventually(lambda: is_on(self.button("Look at It"), "sensitive"), "one version that is ticked")
        act(self.button("Look at It"))
        self.shows("The copy that is opened cannot be changed, and is removed when this window is closed.")
        path, content = eventually(lambda: os.path.exists(seen) and self.content(seen).split("\n"), "a look")
        self.assertEqual(content, "first")
        self.assertEqual(os.path.basename(path), "letter.txt")
        self.assertTrue(path.startswith(looks + "/"), path)
        self.assertEqual(os.stat(path).st_mode & 0o7777, 0o400)
        self.assertEqual(os.stat(os.path.dirname(path)).st_mode & 0o7777, 0o700)
        self.assertFalse(os.path.exists(os.path.join(looks, "left")))
        self.assertEqual(self.content(self.letter), "second, which is longer")
        self.close()
        self.program.process.wait(60)
        eventually(lambda: not os.listdir(looks), "the end of the copy")

    def test_a_search_finds_by_name(self):
        self.TREE = "Files and versions"
        self.back_up(self.documents)
        self.open("--page", "restore")
        self.click(self.program.find(name="Search the whole backup by name"))
        self.type("Keldane Preferences", "letter")
        self.press("Keldane Preferences", "Return")
        self.shows("Files in the backup that fit letter:")
        self.assertEqual(self.names(), [self.letter])
        act(self.button("Show All Files"))
        self.program.find("tree table", "Files in the backup")


class Storage(PagesCase):
    def test_it_tells_where_and_how_and_checks(self):
        self.back_up(self.letter)
        self.open("--page", "storage")
        self.shows(re.compile(r"/repository\Z"))
        self.shows("ready")
        self.shows("1 file in 1 version")
        act(self.button("Check Now"))
        self.shows(re.compile(r"\A\d{4}-\d\d-\d\d \d\d:\d\d: "))  # the row of the last check

    def test_it_tells_how_much_room_is_left(self):
        self.back_up(self.letter)
        self.open("--page", "storage")
        self.shows(re.compile(r"\A\S+ [KMGT]iB of \S+ [KMGT]iB are free\Z"))

    def test_a_new_key_takes_the_place_of_the_present_one(self):
        self.back_up(self.letter)
        former = os.path.join(self.place, "former-key")
        self.ctl("key", "export", former)
        self.open("--page", "storage")
        act(self.button("Change the Key…"))
        self.shows(re.compile("What is stored is not encrypted anew"))
        act(self.button("Make a New Key"))
        self.shows(re.compile(r"\AA new key opens the backup now\."))
        self.shows(re.compile(r"\A([A-Z2-7]{4} ){12}[A-Z2-7]{4}\Z"))
        with self.assertRaises(self.failureException):
            self.ctl("key", "verify", former)

    def test_the_settings_are_the_daemons(self):
        self.open("--page", "storage")
        spin = self.program.find("spin button", "Deleted files are kept for")
        eventually(lambda: value_of(spin) == 90, "the daemon's own setting")
        set_value(spin, 30)
        act(self.button("Apply"))
        eventually(lambda: "30 days" in self.ctl("settings"), "the setting")

    def test_the_key_is_shown_when_it_is_asked_for_and_saved_to_a_file(self):
        self.back_up(self.letter)  # the repository exists a moment after its key
        self.open("--page", "storage")
        act(self.button("Show the Key"))
        self.shows(re.compile(r"\A([A-Z2-7]{4} ){12}[A-Z2-7]{4}\Z"))
        target = os.path.join(self.place, "saved-key")
        act(self.button("Save the Key…"))
        self.window("Save the Key")
        self.press("Save the Key", "ctrl+a")
        self.type("Save the Key", target)
        self.press("Save the Key", "Return")
        eventually(lambda: os.path.exists(target) and os.path.getsize(target), "the key's file with the key in it")
        self.assertEqual(os.stat(target).st_mode & 0o777, 0o600)
        self.ctl("key", "verify", target)

    def test_the_sheet_is_printed(self):
        """To a file, which lies in the folder from which the program was started. A camera reads the key from it."""
        self.back_up(self.letter)
        exported = os.path.join(self.place, "exported")
        self.ctl("key", "export", exported)
        self.addCleanup(os.chdir, os.getcwd())
        os.chdir(self.folder("printed"))
        self.open("--page", "storage")
        act(self.button("Print the Sheet…"))
        self.window("Print")
        self.click(self.program.find("label", "Print to File"), "Print")
        start = self.program.find("push button", re.compile("^(_Print |Print$)"))
        eventually(lambda: is_on(start, "sensitive"), "a printer")
        act(start)
        self.wait_for_end("Print")
        self.shows("The sheet goes to the printer. Keep it apart from this computer.")
        subprocess.run(["pdftoppm", "-png", "-r", "200", "-singlefile", "output.pdf", "sheet"], check=True, timeout=60)
        read = subprocess.run(["zbarimg", "-q", "--raw", "sheet.png"], check=True, capture_output=True, text=True, timeout=60)
        self.assertEqual(read.stdout.strip(), self.content(exported).strip())


class Layout(PagesCase):
    def test_no_text_lies_on_another(self):
        self.back_up(self.letter)
        for page, sign in (("overview", "The only file is backed up"), ("restore", "What is ticked"),
                           ("storage", "Free room"), ("rules", "What is ticked")):
            with self.subTest(page):
                self.open("--page", page)
                self.program.find(name=re.compile("^" + sign))
                texts = [(node.get_name(), node.get_extents(Atspi.CoordType.WINDOW))
                         for node in self.program.all("label") if has_size(node)]
                self.assertGreater(len(texts), 5)
                on_another = [(one, other) for i, (one, a) in enumerate(texts) for other, b in texts[i + 1:]
                              if min(a.x + a.width, b.x + b.width) - max(a.x, b.x) > 1
                              and min(a.y + a.height, b.y + b.height) - max(a.y, b.y) > 1]
                self.assertEqual(on_another, [])
                self.program.end()


class Rules(PagesCase):
    def test_why_is_told_of_what_is_selected(self):
        self.ctl("add", self.documents)
        self.open("--page", "rules")
        self.click(self.row("Documents")[2])
        self.shows("Why: " + self.documents)
        told = self.ctl("why", self.documents).split("decides", 1)[1].split("\n", 1)[0].strip()
        self.shows(re.compile("^" + re.escape(told)))


    def test_a_pattern_shows_what_it_would_leave_out_before_it_does(self):
        image = self.file("home/Documents/disk.iso", "x" * 2048)
        self.back_up(self.documents)
        self.open("--page", "rules")
        self.row("Documents")
        self.click(self.program.find(name="Pattern of what is to be left out"))
        self.type("Keldane Preferences", "*.iso")
        self.assertFalse(is_on(self.button("Leave It Out"), "sensitive"))
        act(self.button("Show What That Is"))
        self.shows(f"*.iso would leave out 1 file, 2.0 KiB:\n{image}")
        eventually(lambda: is_on(self.button("Leave It Out"), "sensitive"), "the way to leave it out")
        act(self.button("Leave It Out"))
        eventually(lambda: "*.iso" in self.ctl("why", image), "the pattern in the daemon's list")


class Setup(PagesCase):
    def test_it_opens_by_itself_once(self):
        self.remember()
        self.open()
        self.shows("Where should the backup be kept?")
        act(self.button("Later"))
        self.wait_for_end(SETUP)
        self.close()
        self.program.process.wait(60)
        self.open()
        self.shows("Nothing is chosen for the backup yet.")
        self.assertFalse(self.program.all("label", "Where should the backup be kept?"))

    def test_four_steps_set_a_backup_up(self):
        self.open("--page", "setup")
        self.shows("Step 1 of 4")
        self.click(self.program.find("check box", "On this disk"), SETUP)
        self.shows(re.compile("It does not help when the disk breaks"))
        act(self.button("Next"))
        self.shows("Step 2 of 4")
        self.shows(re.compile(r"\A([A-Z2-7]{4} ){12}[A-Z2-7]{4}\Z"))
        self.assertFalse(is_on(self.button("Next"), "sensitive"))
        self.click(self.program.find("check box", "Go on without a copy of the key"), SETUP)
        eventually(lambda: is_on(self.button("Next"), "sensitive"), "the way on")
        act(self.button("Next"))
        self.shows("Step 3 of 4")
        self.shows("1 file, 5 B")
        act(self.button("Next"))
        self.shows("Step 4 of 4")
        eventually(lambda: "Backed up" in self.ctl("ls", self.documents), "a file that is stored")

    def place_of_the_backup(self):
        return eventually(lambda: re.search(r"(?m)^Location .*$", self.ctl("repository")), "a repository")[0]

    def test_a_place_that_cannot_be_is_told_and_nothing_is_taken(self):
        before = self.place_of_the_backup()
        self.open("--page", "setup")
        self.click(self.program.find("check box", "On a server"), SETUP)
        act(self.button("Next"))
        self.shows("Please fill in all that the server needs.")
        self.assertEqual(self.place_of_the_backup(), before)
        self.shows("Step 1 of 4")


if __name__ == "__main__":
    unittest.main()
