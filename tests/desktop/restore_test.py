"""Restores files from a real file manager, which KELDANE_FILE_MANAGER names, with the daemon that stores with restic."""

import os
import plistlib
import re
import shutil
import signal
import unittest

import desktop
import filemanagers

from pages_test import PagesCase
from preferences_window import PREFERENCES, Window

MANAGER = filemanagers.ALL[os.environ["KELDANE_FILE_MANAGER"]]
PLUGIN = os.path.join(os.environ["XDG_DATA_HOME"], "keldane", "plugins", "Keldane.plugin")


def setUpModule():
    shutil.copytree(os.path.join(filemanagers.BUILD, "Keldane.plugin"), PLUGIN)
    with open(os.path.join(os.environ["XDG_CONFIG_HOME"], "com.keldane.preferences.plist"), "wb") as stream:
        plistlib.dump({"SetupOffered": True}, stream)
    unittest.addModuleCleanup(MANAGER.prepare())


def processes_of(program):
    found = []
    for number in filter(str.isdigit, os.listdir("/proc")):
        try:
            if os.path.samefile(f"/proc/{number}/exe", program):
                found.append(int(number))
        except OSError:
            continue  # it has ended, or belongs to somebody else
    return found


class OpenedWindow:
    """The preferences program that the file manager has started."""

    showing = Window.showing
    all, find, shows, dump = Window.all, Window.find, Window.shows, Window.dump

    def application(self):
        def opened():
            numbers = processes_of(PREFERENCES)
            return next((each for each in desktop.applications() if each.get_process_id() in numbers), None)
        return desktop.eventually(opened, "the restore window")


class Restoring(PagesCase):
    TREE = "Files and versions"

    def setUp(self):
        super().setUp()
        self.edit_installed()
        self.back_up(self.letter)
        self.file("home/Documents/letter.txt", "second, which is longer")
        desktop.eventually(lambda: self.ctl("versions", self.letter).count("\n") == 2, "a second version")
        self.manager = MANAGER(self.documents, PATH=f"{os.path.dirname(PREFERENCES)}:{os.environ['PATH']}")
        self.addCleanup(self.end_preferences)
        self.addCleanup(self.manager.end)

    @staticmethod
    def end_preferences():
        """Ends the programs that a file manager has started, because they may outlive it."""
        for number in processes_of(PREFERENCES):
            os.kill(number, signal.SIGTERM)

    def edit_installed(self):
        """Makes the installed bundle lead to this test's daemon, too."""
        path = os.path.join(PLUGIN, "Contents", "Info.plist")
        with open(path, "rb") as stream:
            info = plistlib.load(stream)
        with open(path, "wb") as stream:
            plistlib.dump({**info, "DaemonPath": self.socket}, stream)

    def check_what_came_back(self):
        desktop.eventually(lambda: len(os.listdir(self.documents)) == 2, "the restored file beside what is there")
        other = next(name for name in os.listdir(self.documents) if name != "letter.txt")
        desktop.eventually(lambda: self.content(os.path.join(self.documents, other)) == "first", "its contents")
        self.assertEqual(self.content(self.letter), "second, which is longer")

    @unittest.skipUnless(MANAGER.has_page_buttons and MANAGER.tells_of_properties, "there are no buttons to be found")
    def test_from_the_page(self):
        self.manager.select("letter.txt")
        self.manager.open_properties()
        desktop.click(desktop.find(self.manager.application, re.compile("^5 (B|bytes)$"), "table cell"))
        button = desktop.find(self.manager.application, "Restore This Version", "push button")
        desktop.eventually(lambda: desktop.is_on(button, "sensitive"), "the button")
        desktop.act(button)
        desktop.find(self.manager.application, re.compile("^It was restored[.]"))
        self.check_what_came_back()

    def test_by_the_entry(self):
        self.manager.select("letter.txt")
        self.manager.choose_own_entry(self.manager.own_entry("Restore Previous Version…", self.manager.open_menu))
        self.program = OpenedWindow()
        self.shows(f"Versions of {self.letter} in the backup:")
        self.tick(self.names()[-1])
        self.restore(r"\A1 file restored, 5 B\.\Z")
        self.check_what_came_back()


if __name__ == "__main__":
    unittest.main()
