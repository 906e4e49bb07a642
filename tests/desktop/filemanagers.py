"""How each of the five file managers is started and worked."""

import os
import pathlib
import re
import subprocess
import time

import desktop
from desktop import Atspi, click, find, find_now, has_state, press, walk, xdotool

BUILD = os.environ["KELDANE_BUILD"]
WIDEST = 100  # menus are no wider, and a folder that is need not be looked through for them
TAB = "Backup"
TITLE, NOT_RESPONDING = "Keldane", "Keldane is not responding"


def give_focus(name):
    """A window that was opened by a program that has one already does not get it by itself."""
    def try_it():
        found = subprocess.run(["xdotool", "search", "--onlyvisible", "--class", name], capture_output=True,
                               check=False).stdout.split()
        return found and subprocess.run(["xdotool", "windowactivate", "--sync", found[-1]], capture_output=True,
                                        check=False).returncode == 0
    desktop.eventually(try_it, f"the window of {name}")


def set_option(schema, key, value):
    subprocess.run(["gsettings", "set", schema, key, value], check=True, capture_output=True)


def is_on_the_bus(name):
    """Whether a program that runs once a session is there: one that is started then would hand its work to it."""
    names = subprocess.run(["gdbus", "call", "--session", "--dest", "org.freedesktop.DBus", "--object-path",
                            "/org/freedesktop/DBus", "--method", "org.freedesktop.DBus.ListNames"], check=True,
                           capture_output=True, text=True).stdout
    return re.search(rf"[.]{name}'", names, re.IGNORECASE)


class FileManager:
    """One window on one folder. The usual way: files are cells, which the mouse works."""

    name = None
    place = None  # where the system's copy looks for extensions; None when a variable says where
    file_roles = ("table cell",)
    has_separators = True
    names_what_cannot_be_chosen = True
    fills_open_menus = False  # when a menu comes late
    remote = "localtest://"  # before a path: files as if another machine had them
    label_above_end = None  # where a cell is to be clicked, if not in its middle
    has_emblems = True
    has_page_buttons = True  # in its properties
    tells_of_properties = True  # on the accessibility bus
    tells_what_shows = True  # on the accessibility bus
    follows_switches_after = 0  # seconds at most; it looks at them from time to time
    names_headers = True  # of columns, likewise
    tells_count = True  # of the files that it shows
    viewer = None  # the settings that say how a folder is shown, where that is not as a list
    columns = None  # the settings that say which columns a list has, where extensions can have some

    def __init__(self, folder, **environment):
        self.folder = folder
        self.environment = environment
        self.start(*self.start_command(folder))

    def start(self, *command):
        desktop.eventually(lambda: not is_on_the_bus(self.name), f"the end of an earlier {self.name}")
        self.program = desktop.Program(*command, **self.environment)
        self.application = self.program.application()

    @classmethod
    def extension(cls):
        return os.path.join(BUILD, "hosts", cls.name, f"libkeldane-{cls.name}.so")

    @classmethod
    def prepare(cls):
        """Options under which its files can be worked, and the extension in its place, unless the one that is installed is
        to be driven; answers how to take that away again."""
        cls.set_options()
        return cls.place_extension() if "KELDANE_INSTALLED" not in os.environ else lambda: None

    @classmethod
    def set_options(cls):
        pass

    @classmethod
    def place_extension(cls):
        link = pathlib.Path(cls.place) / f"libkeldane-{cls.name}.so"
        link.parent.mkdir(parents=True, exist_ok=True)
        if link.is_symlink():
            link.unlink()
        link.symlink_to(cls.extension())
        return link.unlink

    @classmethod
    def start_command(cls, folder):
        return [cls.name, folder]

    def cell_with(self, text):
        """A cell of any column."""
        return find(self.application, text, "table cell")

    def cell(self, name):
        def settled():
            for role in self.file_roles:
                node = find_now(self.application, name, role)
                if node is not None:
                    before = desktop.middle(node)
                    time.sleep(0.1)
                    return node if desktop.middle(node) == before and min(before) >= 0 else None
            return None
        def missing():
            places = [(role, desktop.middle(node)) for role in self.file_roles
                      for node in [find_now(self.application, name, role, showing=False)] if node is not None]
            return f"the file {name!r}, there are {places or desktop.dump(self.application)}"
        return desktop.eventually(settled, missing)

    def click_cell(self, name, **how):
        click(self.cell(name), above_end=self.label_above_end, **how)

    def select(self, *names):
        self.click_cell(names[0])
        for name in names[1:]:
            self.click_cell(name, held="ctrl")
        self.last = names[-1]

    def select_all(self, one):
        self.click_cell(one)
        press("ctrl+a")
        self.last = one

    def focus_files(self, one):
        """Without a click: what is read later and sorted before it scrolls it away."""
        cell = find(self.application, one, self.file_roles[0], showing=False)
        assert Atspi.Component.grab_focus(cell.get_parent()), "the focus"

    def select_all_of(self, count, one):
        """Once more until all are: what is still being read is selected by nobody. The file manager tells how many."""
        self.focus_files(one)
        number = rf"\b{count // 1000}.?{count % 1000:03}\b"
        told = re.compile(f"{number}.*lected|Selection: {number}")
        def selected():
            press("ctrl+a")
            return any(told.search(node.get_name() or "") for node in walk(self.application, widest=WIDEST))
        desktop.eventually(selected, f"the selection of {count} files")

    def open_menu(self):
        self.click_cell(self.last, button=3)

    def open_menu_by_keyboard(self):
        """With the selection as it is, wherever a program that is still reading the folder has scrolled."""
        press("shift+F10")

    def open_background_menu(self, beside):
        """That of the folder itself, where it has nothing below a file."""
        around = self.cell(beside).get_parent()
        while not around.get_role_name().endswith("table"):
            around = around.get_parent()
        click(around, button=3, above_end=30)

    def open_properties(self):
        """Of what is selected, at the page "Backup"; answers that page."""
        press("alt+Return")
        tab = find(self.application, TAB)
        click(tab)
        return tab

    def reopen_menu(self):
        """Likewise, from an open menu."""
        press("Escape")
        self.open_menu_by_keyboard()

    def top(self, patience=desktop.PATIENCE):
        return find(self.application, TITLE, patience=patience, widest=WIDEST)

    def is_open(self):
        """Whether the file manager's own menu is there."""
        return find_now(self.application, re.compile("^Properties(…|[.]{3})?$"), widest=WIDEST)

    def is_in_menu(self, name):
        return find_now(self.application, name, widest=WIDEST) is not None

    def entries(self):
        """Names of the submenu's entries, each with whether it can be chosen; "-" is a separator."""
        top = self.top()
        click(top)
        desktop.eventually(lambda: [node for node in walk(top) if node != top and node.get_name()
                                    and has_state(node, Atspi.StateType.SHOWING)], "the submenu")
        return [(node.get_name() or "-", has_state(node, Atspi.StateType.SENSITIVE)) for node in walk(top)
                if node != top and (node.get_name() or node.get_role_name() == "separator")
                and has_state(node, Atspi.StateType.SHOWING)]

    def choose(self, title):
        click(find(self.top(), title))

    def choose_anew(self, title):
        """From a menu that is opened for it."""
        self.open_menu()
        click(self.top(patience=5))
        click(find(self.top(), title, patience=5))

    def own_entry(self, title, open_menu):
        """An entry of the host's own, in a menu that may have to be opened more than once: what is not known yet is not
        offered."""
        def offered():
            open_menu()
            end = time.monotonic() + 3
            while time.monotonic() < end:
                if found := self.find_own_entry(title):
                    return found
                time.sleep(0.1)
            self.close_menu()
            return None
        return desktop.eventually(offered, f"the entry {title}")

    def find_own_entry(self, title):
        return find_now(self.application, title, showing=self.tells_what_shows, widest=WIDEST)

    def choose_own_entry(self, entry):
        if self.tells_what_shows:
            click(entry)
        else:
            desktop.act(entry)

    def close_menu(self):
        press("Escape")
        press("Escape")

    def memory(self):
        """What of it is in use, in bytes."""
        with open(f"/proc/{self.program.process.pid}/statm", encoding="ascii") as stream:
            return int(stream.read().split()[1]) * os.sysconf("SC_PAGE_SIZE")

    def end(self):
        self.program.end()


class Thunar(FileManager):
    name = "thunar"
    has_emblems = False
    place = f"/usr/lib/{os.uname().machine}-linux-gnu/thunarx-3"

    @classmethod
    def set_options(cls):
        for key in ("default-view", "last-view"):
            subprocess.run(["xfconf-query", "-c", "thunar", "-p", "/" + key, "-n", "-t", "string", "-s",
                            "ThunarDetailsView"], check=True, capture_output=True)


class Caja(FileManager):
    name = "caja"
    fills_open_menus = True
    columns = "org.mate.caja.list-view"

    @classmethod
    def set_options(cls):
        set_option("org.mate.caja.preferences", "default-folder-viewer", "list-view")

    @classmethod
    def place_extension(cls):
        os.environ["CAJA_EXTENSION_DIRS"] = os.path.dirname(cls.extension())
        return lambda: os.environ.pop("CAJA_EXTENSION_DIRS")

    @classmethod
    def start_command(cls, folder):
        return ["caja", "--no-desktop", "--browser", folder]


class Nemo(FileManager):
    name = "nemo"
    columns = "org.nemo.list-view"
    place = f"/usr/lib/{os.uname().machine}-linux-gnu/nemo/extensions-3.0"

    @classmethod
    def set_options(cls):
        set_option("org.nemo.preferences", "default-folder-viewer", "list-view")


class Nautilus(FileManager):
    """Its accessible widgets have neither places nor a word on whether they show, but actions."""

    name = "nautilus"
    columns = "org.gnome.nautilus.list-view"
    viewer = "org.gnome.nautilus.preferences"
    place = f"/usr/lib/{os.uname().machine}-linux-gnu/nautilus/extensions-4"
    has_separators = False
    has_page_buttons = False
    tells_what_shows = False
    names_headers = False
    tells_count = False
    landmark = "Open Keldane Preferences…"  # an entry by which the submenu is found

    def __init__(self, folder, **environment):
        super().__init__(folder, **environment)
        self.wait()

    def cell_with(self, text):
        return find(self.application, text, showing=False)

    def open_properties(self):
        press("alt+Return")
        entry = find(self.application, TAB, "list item", showing=False)
        def focused():
            press("Tab")
            time.sleep(0.2)
            return desktop.is_on(entry, "focused")
        desktop.eventually(focused, "the focus")
        press("Return")
        return entry

    def open_background_menu(self, beside):
        self.cell(beside)
        xdotool("mousemove", "--window", self.window(), 600, 400)
        xdotool("click", 3)

    @staticmethod
    def window():
        return subprocess.run(["xdotool", "search", "--onlyvisible", "--class", "nautilus"], check=True, capture_output=True,
                              text=True).stdout.split()[-1]

    def right_edge(self):
        """The right edge of the window, in pixels from the left of the screen."""
        told = subprocess.run(["xdotool", "getwindowgeometry", "--shell", self.window()], check=True, capture_output=True,
                              text=True).stdout
        place = {name: int(number) for name, number in re.findall(r"(\w+)=(\d+)", told)}
        return place["X"] + place["WIDTH"]

    def cell(self, name):
        return find(self.application, name, showing=False)

    def wait(self):
        find(self.application, showing=False, role="table cell")
        give_focus(self.name)
        time.sleep(1)  # nothing tells when the window takes keys

    def select(self, *names):
        paths = [os.path.join(self.folder, name) for name in names]
        self.program.end()
        self.start("nautilus", "--select", *paths)
        self.wait()

    def focus_files(self, one):
        self.select(one)  # without a selection they have no focus

    def select_all(self, one):
        self.focus_files(one)
        press("ctrl+a")

    def open_menu(self):
        self.open_menu_by_keyboard()

    def top(self, patience=desktop.PATIENCE):
        return find(self.application, TITLE, showing=False, patience=patience, widest=WIDEST)

    def is_open(self):
        return find_now(self.application, "Properties", showing=False, widest=WIDEST)

    def is_in_menu(self, name):
        return find_now(self.application, name, showing=False, widest=WIDEST) is not None

    def entries(self):
        desktop.act(self.top())
        around = find(self.application, self.landmark, showing=False, widest=WIDEST).get_parent()
        return [(node.get_name(), has_state(node, Atspi.StateType.SENSITIVE)) for node in walk(around)
                if node.get_role_name() == "menu item"]

    def choose(self, title):
        desktop.act(find(self.application, title, showing=False, widest=WIDEST))

    def choose_anew(self, title):
        self.open_menu()
        desktop.act(self.top(patience=5))
        desktop.act(find(self.application, title, showing=False, patience=5, widest=WIDEST))


class Dolphin(FileManager):
    """Its context menus stand in no window's accessible tree. They are worked by keys, and read by what gets the
    focus on the way, which leaves out what cannot be chosen."""

    name = "dolphin"
    file_roles = ("table cell", "list item")  # newer releases report the second
    tells_of_properties = False
    follows_switches_after = 6
    fills_open_menus = True
    has_separators = False
    names_what_cannot_be_chosen = False
    remote = None
    label_above_end = 12  # between icon and label there is nothing to hit
    focused = None

    def open_properties(self):
        press("alt+Return")

    @classmethod
    def place_extension(cls):
        os.environ["QT_PLUGIN_PATH"] = os.path.join(BUILD, "hosts", "dolphin")
        return lambda: os.environ.pop("QT_PLUGIN_PATH")

    def focus_files(self, one):
        self.click_cell(one)  # what it has read already stays where it is

    def listen(self):
        if self.focused:
            self.focused.end()
        self.focused = desktop.FocusedNames()

    def open_menu(self):
        self.listen()
        super().open_menu()
        desktop.eventually(lambda: self.key("Down"), "the menu")

    def open_menu_by_keyboard(self):
        self.listen()
        press("Menu")
        desktop.eventually(lambda: self.key("Down"), "the menu")

    def open_background_menu(self, beside):
        self.cell(beside)
        self.listen()
        window = subprocess.run(["xdotool", "search", "--onlyvisible", "--class", "dolphin"], check=True,
                                capture_output=True, text=True).stdout.split()[-1]
        xdotool("mousemove", "--window", window, 600, 400)
        xdotool("click", 3)
        desktop.eventually(lambda: self.key("Down"), "the menu")

    def find_own_entry(self, title):
        seen = []
        while (name := self.key("Down")) not in seen:
            if name == title:
                return name
            seen.append(name)
        return None

    def choose_own_entry(self, entry):
        press("Return")

    def key(self, key):
        """What has the focus after a key; the last word counts, a submenu's entry after its title."""
        press(key)
        name = self.focused.next()
        while (more := self.focused.next(0.2)) is not None:
            name = more
        return name

    def top(self, patience=desktop.PATIENCE):
        return desktop.eventually(self.enter_submenu, f"the entry {TITLE}", patience)

    def enter_submenu(self):
        """The first choosable entry, if the menu has our title."""
        seen = []
        while (name := self.key("Down")) not in seen:
            if name == TITLE:
                return self.key("Right")
            seen.append(name)
        return None

    def is_open(self):
        return self.key("Down")

    def is_in_menu(self, name):
        return name == TITLE and self.enter_submenu() is not None

    def entries(self):
        names = [self.top()]
        while (name := self.key("Down")) not in names:
            names.append(name)
        return [(name, True) for name in names]

    def choose(self, title):
        desktop.eventually(lambda: self.key("Down") == title, f"the entry {title}")
        press("Return")

    def choose_anew(self, title):
        # The focus in a second menu is not told of reliably; the title's first letter leads to the first entry.
        super().open_menu()
        time.sleep(1)
        press("k")
        press("Return")

    def close_menu(self):
        super().close_menu()
        press("Escape")


ALL = {each.name: each for each in (Thunar, Caja, Nemo, Nautilus, Dolphin)}
