"""A real file manager, which KELDANE_FILE_MANAGER names, with a daemon that gives prepared answers. Each emblem's icon has
one colour here, so that the emblems can be counted in a picture of the screen."""

import datetime
import os
import plistlib
import re
import shutil
import subprocess
import tempfile
import threading
import time
import unittest

import desktop
import filemanagers

from recording_daemon import ENABLED, RecordingDaemon, node

MANAGER = filemanagers.ALL[os.environ["KELDANE_FILE_MANAGER"]]
PLUGIN = os.path.join(os.environ["XDG_DATA_HOME"], "keldane", "plugins", "Keldane.plugin")
PREFERENCES = os.path.join(os.environ["XDG_CONFIG_HOME"], "com.keldane.preferences.plist")
LISTING, EACH, WITH_VERSIONS = "childrenDictionariesForPath:", "dictionaryForPath:withDirSizes:", "dictionaryForPath:"

# For each state: text, backup flags, colour, icon, the icon's colour in the picture.
STATES = {
    "backed up": ("Backed up", 0x30, 2, "backed-up", "#00C853"),
    "waiting": ("Waiting to be backed up", 0x10, 3, "waiting", "#FF9100"),
    "changed": ("Changed since last backup", 0x30, 5, "changed", "#2962FF"),
    "failed": ("Could not be backed up: Permission denied", 0x10, 5, "failed", "#D500F9"),
    "excluded": ("Not selected for backup", 0x40, 1, "excluded", "#795548"),
    "not selected": ("Not selected for backup", 0, 1, None, None),
}


def setUpModule():
    shutil.copytree(os.path.join(filemanagers.BUILD, "Keldane.plugin"), PLUGIN)
    # A scalable icon fits every size, so it comes before the installed one.
    folder = os.path.join(os.environ["XDG_DATA_HOME"], "icons", "hicolor", "scalable", "emblems")
    os.makedirs(folder)
    for _, _, _, icon, colour in STATES.values():
        if icon:
            with open(os.path.join(folder, f"emblem-keldane-{icon}.svg"), "w", encoding="utf-8") as stream:
                stream.write('<svg xmlns="http://www.w3.org/2000/svg" width="16" height="16">'
                             f'<rect width="16" height="16" fill="{colour}"/></svg>')
    unittest.addModuleCleanup(MANAGER.prepare())


def on_screen(*commands):
    """What ImageMagick's commands tell of a picture of the screen."""
    picture = os.path.join(tempfile.gettempdir(), f"keldane-status-{os.getpid()}.png")
    desktop.screenshot(picture)
    try:
        return subprocess.run(["convert", picture, *commands], check=True, capture_output=True, text=True).stdout
    finally:
        os.unlink(picture)


def height_of(state):
    """Where the middle of the only emblem of this state is, in pixels from the top of the screen."""
    box = on_screen("-fill", "black", "+opaque", STATES[state][4], "-format", "%@", "info:-")
    _, height, _, top = map(int, re.findall(r"\d+", box))
    return top + height // 2


def colours():
    """The number of pixels of the screen in each state's colour."""
    told = on_screen("-format", "%c", "histogram:info:-")
    counts = {colour: int(count) for count, colour in re.findall(r"(\d+):.*?(#[0-9A-F]{6})", told)}
    return {state: counts.get(colour, 0) for state, (_, _, _, _, colour) in STATES.items() if colour}


class StatusCase(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.place = tempfile.mkdtemp(prefix="keldane-status-")
        self.addCleanup(shutil.rmtree, self.place)
        self.files = os.path.join(self.place, "files")
        os.mkdir(self.files)
        self.socket = os.path.join(self.place, "daemon.sock")
        self.states = {}
        self.number = 0
        self.hidden = set()  # paths that the daemon does not report
        self.answering = threading.Event()
        self.answering.set()
        self.addCleanup(self.answering.set)
        info = os.path.join(PLUGIN, "Contents", "Info.plist")
        with open(info, "rb") as stream:
            entries = plistlib.load(stream)
        with open(info, "wb") as stream:
            plistlib.dump({**entries, "DaemonPath": self.socket}, stream)
        self.prefer()

    def prefer(self, **preferences):
        """Replaces the user's preferences by these."""
        with open(PREFERENCES + ".new", "wb") as stream:
            plistlib.dump(preferences, stream)
        os.rename(PREFERENCES + ".new", PREFERENCES)

    @staticmethod
    def switch(name, position):
        """Sets a switch with keldanectl, as a person does."""
        subprocess.run([os.environ["KELDANECTL"], "config", "file-manager", name, position], check=True,
                       capture_output=True)

    def file(self, name, state="not selected"):
        """Makes a file. The name may be bytes, which need not be UTF-8."""
        path = os.path.join(self.files, os.fsdecode(name))
        with open(path, "w", encoding="utf-8") as stream:
            stream.write("x")
        self.states[path] = state
        return path

    def become(self, path, state):
        """Changes a file's state, and with it the daemon's."""
        self.states[path] = state
        self.number += 1

    def node(self, path):
        text, flags, colour, _, _ = STATES[self.states.get(path, "not selected")]
        answer = node(path, ENABLED, os.path.isdir(path), text, backupFlags=flags, backupColor=colour)
        if flags & 0x20:
            answer["backupDate"] = self.date
        return answer

    def list(self, folder):
        """The nodes of a folder; names that are not UTF-8 cannot be reported."""
        paths = [os.path.join(folder, name) for name in sorted(os.listdir(folder))]
        return [self.node(path) for path in paths
                if path not in self.hidden and not re.search("[\ud800-\udfff]", path)]

    def answer(self, function):
        def wait(*arguments):
            self.answering.wait(60)
            return function(*arguments)
        return wait

    def daemon(self):
        self.date = datetime.datetime(2026, 11, 20, 14, 0)
        daemon = RecordingDaemon(self.socket, {
            LISTING: self.answer(self.list),
            EACH: self.answer(lambda path, _: None if path in self.hidden else self.node(path)),
            WITH_VERSIONS: self.answer(self.node),
            "daemonState": self.answer(lambda: {"statusString": f"State {self.number}"})})
        self.addCleanup(daemon.stop)
        return daemon

    def open(self, place=None, **environment):
        self.manager = MANAGER(place or self.files, **environment)
        self.addCleanup(self.manager.end)

    def shows(self, *states, patience=desktop.PATIENCE):
        """Waits until there are emblems of exactly these states."""
        seen = {}
        def found():
            seen.update(colours())
            return sorted(state for state, count in seen.items() if count > 20) == sorted(states)
        desktop.eventually(found, lambda: f"emblems of {states}, instead of {seen},", patience)
        self.assertTrue(self.manager.program.is_running())
