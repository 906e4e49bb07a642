"""A desktop of a test's own: a screen, a session bus, a window manager and the accessibility bus, and a way to read and
drive the windows on it.

Runs with the interpreter for which the system builds its introspection bindings."""

import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time

# What a busy machine may need; nothing waits longer than until what it waits for is there.
PATIENCE = 60


class Desktop:
    """A private screen and session, in a folder of its own. The accessibility bus is found by the environment, once a
    process, so a test process has one desktop: `Desktop.shared()`."""

    _shared = None

    @classmethod
    def shared(cls):
        if cls._shared is None:
            cls._shared = cls()
        return cls._shared

    def __init__(self):
        self._processes = []
        self._place = tempfile.mkdtemp(prefix="keldane-desktop-")
        os.environ["XDG_RUNTIME_DIR"] = self._place
        display = self._start_screen()
        self.environment = {"DISPLAY": display, "GDK_BACKEND": "x11", "GSETTINGS_BACKEND": "memory",
                            "GTK_THEME": "Adwaita", "NO_AT_BRIDGE": "0", "GTK_MODULES": "gail:atk-bridge",
                            "XDG_RUNTIME_DIR": self._place,
                            "DBUS_SESSION_BUS_ADDRESS": self._start_bus(display)}
        os.environ.update(self.environment)
        self._start(["openbox", "--sm-disable"])
        eventually(self._has_window_manager, "the window manager")
        self._start(["/usr/libexec/at-spi-bus-launcher", "--launch-immediately", "--a11y=1"])
        global Atspi
        import gi
        gi.require_version("Atspi", "2.0")
        from gi.repository import Atspi
        eventually(lambda: Atspi.get_desktop(0) is not None, "the accessibility bus")

    def _start(self, command, **options):
        process = subprocess.Popen(command, stderr=subprocess.DEVNULL, **options)
        self._processes.append(process)
        return process

    def _start_screen(self):
        # A number of this process's own, because a server that ends can take the next one's of the same number along.
        # The server says when it can be reached.
        display = f":{10000 + os.getpid() % 40000}"
        reading, writing = os.pipe()
        self._start(["Xvfb", display, "-displayfd", str(writing), "-screen", "0", "1280x1024x24", "-nolisten", "tcp"],
                    pass_fds=[writing], stdout=subprocess.DEVNULL)
        os.close(writing)
        with os.fdopen(reading) as stream:
            if not stream.readline().strip():
                raise AssertionError(f"there is no screen {display}")
        return display

    def _start_bus(self, display):
        bus = self._start(["dbus-daemon", "--session", "--nofork", "--print-address"], stdout=subprocess.PIPE,
                          text=True, env={**os.environ, "DISPLAY": display})
        with bus.stdout as stream:
            return stream.readline().strip()

    @staticmethod
    def _has_window_manager():
        return subprocess.run(["xdotool", "get_num_desktops"], capture_output=True, timeout=PATIENCE,
                              check=False).returncode == 0

    def stop(self):
        for process in reversed(self._processes):
            process.terminate()
        for process in reversed(self._processes):
            process.wait(PATIENCE)
        shutil.rmtree(self._place, ignore_errors=True)
        Desktop._shared = None

    def start(self, command, environment):
        """A program on this desktop. Toolkits need the system's own data: types of files, icons."""
        data = [environment.get("XDG_DATA_DIRS", ""), "/usr/local/share", "/usr/share"]
        return Program(command, {**environment, **self.environment, "XDG_DATA_DIRS": ":".join(filter(None, data))})

    def screenshot(self, path):
        subprocess.run(["import", "-window", "root", path], check=True, timeout=PATIENCE)


class Program:
    """A running program and its windows."""

    def __init__(self, command, environment):
        self.process = subprocess.Popen(command, env=environment, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                        text=True)
        self._application = None

    def application(self):
        """Its root on the accessibility bus, once it is there."""
        if self._application is None:
            self._application = eventually(self._find_application, f"{self.process.args[0]} on the accessibility bus")
        return self._application

    def _find_application(self):
        if self.process.poll() is not None:
            raise AssertionError(f"{self.process.args[0]} ended: {self.process.stdout.read()}")
        desktop = Atspi.get_desktop(0)
        for i in range(desktop.get_child_count()):
            each = desktop.get_child_at_index(i)
            if each is not None and each.get_process_id() == self.process.pid:
                return each
        return None

    def all(self, role=None, name=None):
        """The elements that are showing, in their order; `name` may be a compiled pattern."""
        return [each for each in walk(self.application()) if matches(each, role, name)]

    def find(self, role=None, name=None):
        """The first such element, which is waited for."""
        return eventually(lambda: next((each for each in walk(self.application()) if matches(each, role, name)), None),
                          lambda: f"{role} {name!r} in\n{self.dump()}")

    def shows(self, name):
        """Waits for a text."""
        return self.find(name=name)

    def dump(self):
        return "\n".join(f"{each.get_role_name()} {each.get_name()!r}" for each in walk(self.application())
                         if is_showing(each))

    def end(self):
        """Closes it as a user's session would, and answers its exit status."""
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGTERM)
        try:
            return self.process.wait(PATIENCE)
        finally:
            self.process.stdout.close()


def eventually(condition, what="it"):
    """The condition's first true answer. An element that has gone while it was looked at counts as not there."""
    end = time.monotonic() + PATIENCE
    while True:
        try:
            if answer := condition():
                return answer
        except gone():
            pass
        if time.monotonic() > end:
            raise AssertionError(f"{what() if callable(what) else what} did not come about")
        time.sleep(0.05)


class Gone(Exception):
    """An element that is no longer there."""


def gone():
    """What is raised for an element that is no longer there."""
    glib = sys.modules.get("gi.repository.GLib")
    return (Gone, glib.Error) if glib else Gone


def child(element, index):
    found = element.get_child_at_index(index)
    if found is None:
        raise Gone
    return found


def walk(element):
    """The element and all below it, each before what is in it."""
    if element is None:
        return
    yield element
    for i in range(element.get_child_count()):
        yield from walk(element.get_child_at_index(i))


def is_showing(element):
    return element.get_state_set().contains(Atspi.StateType.SHOWING)


def is_on(element, state):
    """Whether a state by its name, such as "checked", "indeterminate" or "sensitive", is on."""
    element.clear_cache()
    return element.get_state_set().contains(getattr(Atspi.StateType, state.upper()))


def matches(element, role, name):
    if role is not None and element.get_role_name() != role:
        return False
    if name is not None:
        actual = element.get_name() or ""
        if not (name.search(actual) if hasattr(name, "search") else actual == name):
            return False
    return is_showing(element)


def act(element, action=None):
    """Does the element's action of this name, or its first."""
    names = [element.get_action_name(i) for i in range(element.get_n_actions())]
    index = 0 if action is None else names.index(action)
    assert element.do_action(index), f"{element.get_name()!r} did not do {names[index]}"


def value_of(element):
    return element.get_current_value()


def set_value(element, value):
    assert element.set_current_value(value)


def set_text(element, text):
    assert element.set_text_contents(text)
