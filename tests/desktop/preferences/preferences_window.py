"""The preferences program in its window, and the operations with which tests read and use it."""

import os
import plistlib
import subprocess
import time

import desktop
from desktop import Atspi, child, eventually, is_on
from harness import PATIENCE, Case

PREFERENCES = os.environ["KELDANE_PREFERENCES"]
CTL = os.environ["KELDANECTL"]

AWAY = "The backup daemon is away; waiting for it to come back."
EMPTY = "Nothing to show here."
SILENT = "The backup daemon does not answer."
TITLE = "Keldane Preferences"


class Window(desktop.Program):
    showing = desktop.BY_SIZE


class PreferencesCase(Case):
    def setUp(self):
        super().setUp()
        self.home = os.path.realpath(self.folder("home"))
        # This is beside the home folder, so that the shown files include no program's own.
        self.environment["XDG_CACHE_HOME"] = os.path.join(self.place, "cache")
        self.environment["HOME"] = self.home
        self.remember(SetupOffered=True)
        self.program = None

    def remember(self, **values):
        """Writes preferences as if the program had kept them from earlier runs."""
        config = self.environment["XDG_CONFIG_HOME"]
        os.makedirs(config, exist_ok=True)
        with open(os.path.join(config, "com.keldane.preferences.plist"), "wb") as stream:
            plistlib.dump(values, stream)

    def open(self, *arguments, **environment):
        # Toolkits need the system's own data, such as types of files and icons.
        data = self.environment["XDG_DATA_DIRS"] + ":/usr/local/share:/usr/share"
        self.program = Window(PREFERENCES, "--bundle", self.bundle, *arguments,
                              **{**self.environment, "XDG_DATA_DIRS": data, **environment})
        self.addCleanup(self.program.end)
        return self.program

    def shows(self, name):
        return self.program.shows(name)

    # --- The tree: five cells a row; the first has a box, the second an icon, a name, and a button before a folder ---

    TREE = "Files and folders"

    def rows(self):
        """Reads the rows twice, because they change while they are read."""
        def read():
            cells = self.cells()
            return cells if cells and cells == self.cells() else None

        return eventually(read, "a tree that stays")

    def cells(self):
        table = self.program.find("tree table", self.TREE)
        lines = desktop.find_now(table, role="list", showing=desktop.BY_SIZE)
        rows = [child(lines, i) for i in range(lines.get_child_count())]
        return [[child(row, i) for i in range(5)] for row in rows if desktop.has_size(row)]

    @staticmethod
    def within(cell, role):
        cell.clear_cache()
        return desktop.find_now(cell, role=role, showing=desktop.BY_SIZE)

    def text_in(self, cell):
        label = self.within(cell, "label")
        return label.get_name() if label else ""

    def name_in(self, row):
        return self.text_in(row[1])

    def names(self):
        return [self.name_in(row) for row in self.rows()]

    def row(self, name):
        return eventually(lambda: next((row for row in self.rows() if self.name_in(row) == name), None),
                          lambda: f"row {name!r} among {self.names()}")

    def box(self, name):
        return eventually(lambda: self.within(self.row(name)[0], "check box"), f"a box of {name}")

    def tick(self, name):
        self.click(self.box(name))

    def is_ticked(self, name):
        return is_on(self.box(name), "checked")

    def wait_for_box(self, name, ticked):
        eventually(lambda: self.is_ticked(name) is ticked, f"box {name} {ticked}")

    def wait_for_state(self, name, state):
        eventually(lambda: self.text_in(self.row(name)[2]) == state,
                   lambda: f"{name} {state!r} in\n{self.program.dump()}")

    def expand(self, name):
        button = eventually(lambda: self.within(self.row(name)[1], "push button"), f"a button before {name}")
        if button.get_child_count() == 0:
            self.click(button)
        else:  # Newer toolkits report the whole cell as a button. Only its arrow takes a click; a double click does the same.
            time.sleep(0.5)  # otherwise it could be the third and fourth click
            self.click(self.within(button, "label"), clicks=2)

    # --- The window ---

    def window(self, title):
        """The number of the window with this title, as soon as it is visible."""
        return subprocess.run(["xdotool", "search", "--sync", "--onlyvisible", "--name", f"^{title}$"], check=True,
                              capture_output=True, text=True, timeout=PATIENCE).stdout.split()[0]

    @staticmethod
    def wait_for_end(title):
        """Waits until the window is no longer visible. Reading its widgets while GTK 4 destroys them would crash the
        program."""
        eventually(lambda: not subprocess.run(["xdotool", "search", "--onlyvisible", "--name", f"^{title}$"], check=False,
                                              capture_output=True, timeout=PATIENCE).stdout, f"the end of {title}")

    def press(self, title, keys):
        subprocess.run(["xdotool", "windowfocus", "--sync", self.window(title), "key", keys], check=True,
                       timeout=PATIENCE)

    def click(self, node, title=TITLE, clicks=1):
        """Clicks in a node, right of its middle and below; GTK 4 reports positions within the window. Newer releases leave the
        padding of a tree's cells out of them, so what stands in a cell is some points further right and down."""
        extents = node.get_extents(Atspi.CoordType.WINDOW)
        x, y = extents.x + extents.width * 3 // 4, extents.y + extents.height * 3 // 4
        subprocess.run(["xdotool", "mousemove", "--window", self.window(title), str(x), str(y), "click", "--repeat",
                        str(clicks), "1"], check=True, timeout=PATIENCE)

    def go(self, page, title=TITLE):
        self.click(self.program.find("label", page), title)

    def type(self, title, text):
        """Types no faster than a person, because a field that completes paths would mix its own text in."""
        subprocess.run(["xdotool", "windowfocus", "--sync", self.window(title), "type", "--delay", "80", text], check=True,
                       timeout=PATIENCE)

    def field_of(self, title):
        """The first text field in the window with this title, as soon as it has a size."""
        def read():
            application = self.program.application()
            windows = [child(application, i) for i in range(application.get_child_count())]
            return next((field for window in windows if window.get_name() == title
                         if (field := desktop.find_now(window, role="text", showing=desktop.BY_SIZE))), None)
        return eventually(read, lambda: f"a text field of {title!r} in\n{self.program.dump()}")

    def close(self):
        """Closes the window through the window manager, as a user does."""
        self.press(TITLE, "alt+F4")

    # --- The daemon's side ---

    def ctl(self, *arguments):
        result = subprocess.run([CTL, "--bundle", self.bundle, *arguments], env=self.environment, capture_output=True,
                                check=False, text=True, timeout=PATIENCE)
        self.assertEqual(result.returncode, 0, result.stderr)
        return result.stdout
