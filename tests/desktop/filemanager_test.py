"""The plug-in in a real file manager, which KELDANE_FILE_MANAGER names, with a daemon that records its calls."""

import os
import plistlib
import shutil
import signal
import subprocess
import tempfile
import threading
import time
import unittest

import desktop
import filemanagers

from recording_daemon import ENABLED, PRIORITY_OFFER, RecordingDaemon, node

MANAGER = filemanagers.ALL[os.environ["KELDANE_FILE_MANAGER"]]
ARTEFACTS = os.environ.get("KELDANE_SCREENSHOTS")

LAUNCHER = os.path.abspath(os.path.join(os.path.dirname(__file__),
                                        "../../clients/preferences/keldane-preferences.desktop"))
PREFERENCES_FILE = os.path.join(os.environ["XDG_CONFIG_HOME"], "com.keldane.preferences.plist")
PLUGIN = os.path.join(os.environ["XDG_DATA_HOME"], "keldane", "plugins", "Keldane.plugin")
QUESTION = "dictionaryForPath:withDirSizes:"
STATUS = "Status: Not selected for backup"
ASAP, PREFERENCES = "Back Up This File As Soon As Possible", "Open Keldane Preferences…"

ODD_NAMES = ["a b", "it's \"quoted\"", "co:lon", "100%20", "under_score", "a&b", "new\nline", "\u05e9\u05dc\u05d5\u05dd", "😀",
             "x" * 255]


def setUpModule():
    shutil.copytree(os.path.join(filemanagers.BUILD, "Keldane.plugin"), PLUGIN)
    # The tests count the questions for menus only.
    with open(PREFERENCES_FILE, "wb") as stream:
        plistlib.dump({"ShowEmblems": "NO", "ShowColumns": "NO", "ShowRestoreEntries": "NO"}, stream)
    unittest.addModuleCleanup(MANAGER.prepare())


class InTheFileManager(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.place = tempfile.mkdtemp(prefix="keldane-files-")
        self.addCleanup(shutil.rmtree, self.place)
        self.files = os.path.join(self.place, "files")
        os.mkdir(self.files)
        self.socket = os.path.join(self.place, "daemon.sock")
        self.answering = threading.Event()
        self.answering.set()
        self.addCleanup(self.answering.set)
        self.manager = None
        self.edit_info(DaemonPath=self.socket)

    def edit_info(self, **entries):
        path = os.path.join(PLUGIN, "Contents", "Info.plist")
        with open(path, "rb") as stream:
            info = plistlib.load(stream)
        with open(path, "wb") as stream:
            plistlib.dump({**info, **entries}, stream)

    def file(self, name, content="x"):
        path = os.path.join(self.files, name)
        with open(path, "w", encoding="utf-8") as stream:
            stream.write(content)
        return path

    def daemon(self):
        def answer(path, _):
            self.answering.wait(60)
            folder = os.path.isdir(path)
            return node(path, ENABLED if folder else ENABLED | PRIORITY_OFFER, folder)
        daemon = RecordingDaemon(self.socket, {QUESTION: answer})
        self.addCleanup(daemon.stop)
        return daemon

    def open(self, patience=30000, place=None, **environment):
        """A menu may take long on a busy machine."""
        self.manager = MANAGER(place or self.files, KELDANE_MENU_PATIENCE=str(patience), **environment)
        self.addCleanup(self.manager.end)

    def told(self, daemon, selector):
        return [frame.arguments[0] for frame in list(daemon.frames) if frame.selector == selector]

    def wait_until_told(self, daemon, selector, count=1, patience=desktop.PATIENCE):
        desktop.eventually(lambda: len(self.told(daemon, selector)) >= count, f"{count} × {selector}", patience)
        return self.told(daemon, selector)

    def check_entries(self, *expected):
        """Checks the entries; the first one cannot be chosen."""
        entries = self.manager.entries()
        expected = [title for title in expected if title != "-" or MANAGER.has_separators]
        if MANAGER.names_what_cannot_be_chosen:
            self.assertEqual([name for name, can in entries if not can and name != "-"], expected[:1])
        else:
            expected = expected[1:]
        self.assertEqual([name for name, _ in entries], expected)
        if ARTEFACTS:
            desktop.screenshot(os.path.join(ARTEFACTS, f"{MANAGER.name}-{self._testMethodName}.png"))

    def still_works(self, daemon):
        """Chooses from another menu in the same window. On a busy machine this may need several menus."""
        def another():
            self.manager.close_menu()
            try:
                self.manager.choose_anew("Back This Up")
            except AssertionError:
                return False
            end = time.monotonic() + 3
            while time.monotonic() < end and not self.told(daemon, "addFileToBackup:"):
                time.sleep(0.05)
            return self.told(daemon, "addFileToBackup:")
        self.assertEqual(self.told(daemon, "addFileToBackup:"), [])
        desktop.eventually(another, "what was chosen from another menu")

    def reopened(self):
        """Whether another menu has the entry."""
        self.manager.reopen_menu()
        end = time.monotonic() + 5
        while time.monotonic() < end and not self.manager.is_in_menu(filemanagers.TITLE):
            time.sleep(0.1)
        return self.manager.is_in_menu(filemanagers.TITLE)

    def check_that_the_window_answers(self):
        longest = 0
        for _ in range(30):
            start = time.monotonic()
            self.manager.application.get_child_at_index(0).get_name()
            longest = max(longest, time.monotonic() - start)
            time.sleep(0.02)
        self.assertLess(longest, 1)

    # --- Tests ---

    def test_one_file(self):
        path = self.file("letter.txt")
        daemon = self.daemon()
        self.open()
        self.manager.select("letter.txt")
        self.manager.open_menu()
        self.check_entries(STATUS, "-", "Back This Up", ASAP, "-", PREFERENCES)
        self.manager.choose("Back This Up")
        self.assertEqual(self.wait_until_told(daemon, "addFileToBackup:"), [path])
        desktop.eventually(lambda: daemon.ended == daemon.connections, "the end of the cycle")
        self.assertEqual(daemon.connections, 1)

    def test_several(self):
        paths = [self.file(name) for name in ("a.txt", "b.txt")]
        daemon = self.daemon()
        self.open()
        self.manager.select_all("a.txt")
        self.manager.open_menu()
        self.check_entries("Status: <multiple files selected>", "-", "Back This Up", ASAP, "-", PREFERENCES)
        self.manager.choose(ASAP)
        self.assertEqual(sorted(self.wait_until_told(daemon, "setPriorityBackup:", 2)), paths)

    def test_the_menu_by_the_keyboard(self):
        path = self.file("letter.txt")
        daemon = self.daemon()
        self.open()
        self.manager.select("letter.txt")
        self.manager.open_menu_by_keyboard()
        self.check_entries(STATUS, "-", "Back This Up", ASAP, "-", PREFERENCES)
        self.manager.choose("Back This Up")
        self.assertEqual(self.wait_until_told(daemon, "addFileToBackup:"), [path])

    def test_a_folder(self):
        os.mkdir(os.path.join(self.files, "folder"))
        daemon = self.daemon()
        self.open()
        self.manager.select("folder")
        self.manager.open_menu()
        self.check_entries(STATUS, "-", "Back This Up", "Don't Back This Up", "-", PREFERENCES)
        self.manager.choose("Don't Back This Up")
        self.assertEqual(self.wait_until_told(daemon, "removeFileFromBackup:"), [os.path.join(self.files, "folder")])

    def test_odd_names(self):
        paths = [self.file(name) for name in ODD_NAMES]
        with open(os.fsencode(self.files) + b"/no text \xff", "wb"):
            pass
        daemon = self.daemon()
        self.open()
        self.manager.select_all("a b")
        self.manager.open_menu()
        self.check_entries("Status: <multiple files selected>", "-", "Back This Up", ASAP, "-", PREFERENCES)
        self.manager.choose("Back This Up")
        self.assertEqual(sorted(self.wait_until_told(daemon, "addFileToBackup:", len(paths))), sorted(paths))

    def test_ten_thousand_files(self):
        count = 10000
        for number in range(count):
            self.file(f"{number:05}.txt", "")
        daemon = self.daemon()
        self.answering.clear()
        self.open(patience=100)
        self.manager.select_all_of(count, "00009.txt")
        before = self.manager.memory()
        self.manager.open_menu_by_keyboard()
        desktop.eventually(lambda: QUESTION in daemon.selectors(), "the first question", 120)
        self.manager.application.get_child_count()  # comes back although the daemon does not answer
        self.answering.set()
        asked = 4 * count  # four questions about each file
        self.wait_until_told(daemon, QUESTION, asked, patience=120)
        if not MANAGER.fills_open_menus:
            desktop.eventually(self.reopened, "the menu that came late", 120)
        self.check_entries("Status: <multiple files selected>", "-", "Back This Up", ASAP, "-", PREFERENCES)
        self.assertEqual(len(self.told(daemon, QUESTION)), asked, "one examination")
        self.manager.choose("Back This Up")
        told = self.wait_until_told(daemon, "addFileToBackup:", count, patience=120)
        self.assertEqual(len(set(told)), count)
        self.assertLess(self.manager.memory() - before, 200 << 20)

    def test_what_was_thrown_away_gets_no_entry(self):
        path = self.file("letter.txt")
        subprocess.run(["gio", "trash", path], check=True)
        self.addCleanup(subprocess.run, ["gio", "trash", "--empty"], check=True)
        self.check_that_it_gets_no_entry("trash:///")

    @unittest.skipIf(MANAGER.remote is None, "it knows no other machine's files without another machine")
    def test_another_machines_files_get_no_entry(self):
        self.file("letter.txt")
        place = f"{MANAGER.remote}{self.files}"
        subprocess.run(["gio", "mount", place], check=True, capture_output=True)
        self.addCleanup(subprocess.run, ["gio", "mount", "--unmount", place], check=True, capture_output=True)
        self.check_that_it_gets_no_entry(place)

    def check_that_it_gets_no_entry(self, place):
        daemon = self.daemon()
        self.open(place=place)
        self.manager.select("letter.txt")
        self.manager.open_menu()
        desktop.eventually(self.manager.is_open, "the menu")
        self.assertFalse(self.manager.is_in_menu(filemanagers.TITLE))
        self.assertEqual(daemon.selectors(), [])

    def test_in_the_users_language(self):
        self.file("letter.txt")
        self.daemon()
        self.open(LC_ALL="", LANG="C.UTF-8", LC_MESSAGES="de_DE.UTF-8")
        self.manager.landmark = "Sichern"
        self.manager.select("letter.txt")
        self.manager.open_menu()
        self.check_entries("Status: Not selected for backup", "-", "Sichern", "Diese Datei so bald wie möglich sichern", "-",
                           "Keldane-Einstellungen öffnen …")

    def test_without_a_daemon_there_is_no_entry(self):
        self.file("letter.txt")
        self.open()
        self.manager.select("letter.txt")
        self.manager.open_menu()
        desktop.eventually(self.manager.is_open, "the menu")
        self.assertFalse(self.manager.is_in_menu(filemanagers.TITLE))

    def test_a_daemon_that_hangs_does_not_hang_the_window(self):
        self.file("letter.txt")
        daemon = self.daemon()
        self.answering.clear()
        self.open(patience=100)
        self.manager.select("letter.txt")
        self.manager.open_menu()
        desktop.eventually(lambda: daemon.selectors().count(QUESTION) == 1, "the question")
        self.check_that_the_window_answers()
        if MANAGER.names_what_cannot_be_chosen:
            self.assertTrue(self.manager.is_in_menu(filemanagers.NOT_RESPONDING))
        self.assertEqual(daemon.selectors().count(QUESTION), 1, "nothing more is asked meanwhile")
        self.answering.set()
        if MANAGER.fills_open_menus:
            self.manager.top()
        self.still_works(daemon)

    def test_a_daemon_that_dies_while_the_menu_is_open(self):
        self.file("letter.txt")
        daemon = self.daemon()
        self.open()
        self.manager.select("letter.txt")
        self.manager.open_menu()
        self.check_entries(STATUS, "-", "Back This Up", ASAP, "-", PREFERENCES)
        daemon.stop()
        os.unlink(self.socket)
        self.manager.choose("Back This Up")
        time.sleep(0.5)
        self.assertTrue(self.manager.program.is_running())
        self.still_works(self.daemon())

    def test_the_preferences(self):
        self.file("letter.txt")
        self.daemon()
        launcher, opened = os.path.join(self.place, "some where.desktop"), os.path.join(self.place, "opened")
        with open(launcher, "w", encoding="utf-8") as stream:
            stream.write(f"[Desktop Entry]\nType=Application\nName=Opened\nExec=touch {opened}\n")
        self.edit_info(**{"Prefpane Path": launcher})
        self.open()
        self.manager.select("letter.txt")
        self.manager.open_menu()
        self.check_entries(STATUS, "-", "Back This Up", ASAP, "-", PREFERENCES)
        self.manager.choose(PREFERENCES)
        desktop.eventually(lambda: os.path.exists(opened), "the preferences")

    def test_the_preferences_program_by_its_own_launcher(self):
        self.file("letter.txt")
        self.daemon()
        self.edit_info(**{"Prefpane Path": LAUNCHER})
        self.open(PATH=os.path.join(filemanagers.BUILD, "bin") + ":" + os.environ["PATH"])
        self.manager.select("letter.txt")
        self.manager.open_menu()
        self.check_entries(STATUS, "-", "Back This Up", ASAP, "-", PREFERENCES)
        self.manager.choose(PREFERENCES)
        program = desktop.eventually(lambda: next((each for each in desktop.applications()
                                                   if each.get_name() == "keldane-preferences"), None), "the program")
        self.addCleanup(os.kill, program.get_process_id(), signal.SIGKILL)
        desktop.find(program, role="frame")

    def test_moving_through_the_files_asks_nothing(self):
        for i in range(20):
            self.file(f"{i:02}.txt")
        daemon = self.daemon()
        self.open()
        self.manager.select("00.txt")
        for _ in range(15):
            desktop.press("Down")
        time.sleep(1)
        self.assertEqual(daemon.selectors(), [])


if __name__ == "__main__":
    unittest.main()
