"""A desktop for the tests: an X server without a screen, a session bus, a window manager, and the accessibility bus through
which windows are read and operated."""

import atexit
import os
import shutil
import signal
import subprocess
import tempfile
import time

PATIENCE = 120  # seconds, enough for a busy machine; a wait ends as soon as its condition is true

_place = tempfile.mkdtemp(prefix="keldane-desktop-")
_processes = []


def _end():
    for process in reversed(_processes):
        if process.poll() is None:
            process.terminate()
    for process in reversed(_processes):
        try:
            process.wait(5)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()
    shutil.rmtree(_place, ignore_errors=True)


atexit.register(_end)


def _start(*command, **options):
    process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=options.pop("stdout", subprocess.DEVNULL),
                               stderr=subprocess.DEVNULL, **options)
    _processes.append(process)
    return process


def _begin():
    """Starts everything and points this process's environment to it, before anything reads the environment."""
    # Each process uses a number of its own, because an ending server can take down the next one of the same number. The
    # server reports when it is ready. With -noreset it does not restart, and so lose new clients, whenever its last client
    # leaves.
    display = str(10000 + os.getpid() % 40000)
    reading, writing = os.pipe()
    _start("Xvfb", ":" + display, "-displayfd", str(writing), "-screen", "0", "1280x1024x24", "-nolisten", "tcp", "-noreset",
           pass_fds=[writing])
    os.close(writing)
    with os.fdopen(reading) as stream:
        if not stream.readline().strip():
            raise AssertionError(f"there is no screen {display}")
    folders = {name: os.path.join(_place, name) for name in ("home", "config", "data", "cache", "run")}
    for folder in folders.values():
        os.mkdir(folder, 0o700)
    os.environ.update(
        DISPLAY=":" + display, HOME=folders["home"], XDG_CONFIG_HOME=folders["config"], XDG_DATA_HOME=folders["data"],
        XDG_CACHE_HOME=folders["cache"], XDG_RUNTIME_DIR=folders["run"], LC_ALL="C.UTF-8", GDK_BACKEND="x11",
        GSK_RENDERER="cairo", LIBGL_ALWAYS_SOFTWARE="1", GSETTINGS_BACKEND="keyfile", GTK_MODULES="gail:atk-bridge",
        NO_AT_BRIDGE="0", GTK_A11Y="atspi", QT_ACCESSIBILITY="1", QT_LINUX_ACCESSIBILITY_ALWAYS_ON="1",
        QT_QPA_PLATFORM="xcb", GVFS_DISABLE_FUSE="1")
    for name in ("WAYLAND_DISPLAY", "NO_COLOR"):
        os.environ.pop(name, None)
    bus = _start("dbus-daemon", "--session", "--nofork", "--print-address=1", stdout=subprocess.PIPE)
    with bus.stdout as stream:
        os.environ["DBUS_SESSION_BUS_ADDRESS"] = stream.readline().decode().strip()
    # Without this, a desktop program that asks the system bus for services waits long where there is none.
    os.environ["DBUS_SYSTEM_BUS_ADDRESS"] = os.environ["DBUS_SESSION_BUS_ADDRESS"]
    subprocess.run(["gsettings", "set", "org.gnome.desktop.interface", "toolkit-accessibility", "true"], check=True,
                   capture_output=True)
    # The accessibility bus starts when it is called. Qt programs check only at their start whether a screen reader runs.
    subprocess.run(["gdbus", "call", "--session", "--dest", "org.a11y.Bus", "--object-path", "/org/a11y/bus", "--method",
                    "org.freedesktop.DBus.Properties.Set", "org.a11y.Status", "IsEnabled", "<true>"], check=True,
                   capture_output=True)
    _start("openbox")
    end = time.monotonic() + PATIENCE
    while subprocess.run(["xdotool", "get_num_desktops"], capture_output=True, check=False).returncode != 0:
        if time.monotonic() > end:
            raise AssertionError("the window manager did not come about")
        time.sleep(0.05)


if "KELDANE_ON_THIS_DISPLAY" not in os.environ:
    _begin()

import gi  # noqa: E402  after the environment is as it is to be
gi.require_version("Atspi", "2.0")
from gi.repository import Atspi, GLib  # noqa: E402

if "KELDANE_ON_THIS_DISPLAY" not in os.environ:
    # This starts the registry, so that the first program finds it.
    Atspi.get_desktop(0).get_child_count()


def eventually(condition, what, patience=PATIENCE):
    """Waits for the condition and returns its first true answer. A node that disappears meanwhile counts as missing."""
    end = time.monotonic() + patience
    while True:
        try:
            if answer := condition():
                return answer
        except (GLib.Error, Gone):
            pass
        if time.monotonic() > end:
            if folder := os.environ.get("KELDANE_SCREENSHOTS"):
                screenshot(os.path.join(folder, f"missing-{time.time():.0f}.png"))
            raise AssertionError(f"{what() if callable(what) else what} did not come about")
        time.sleep(0.05)


class Gone(Exception):
    """A node that existed a moment ago has disappeared."""


def child(node, index):
    try:
        found = node.get_child_at_index(index)
    except GLib.Error:
        found = None
    if found is None:
        raise Gone
    return found


# Newer releases of the accessibility bus and of GTK have other names for some roles.
FORMER_ROLES = {"button": "push button", "radio button": "check box"}


def role_of(node):
    """The name of the node's role; the former one, where it has a newer one."""
    name = node.get_role_name()
    return FORMER_ROLES.get(name, name)


def applications():
    """The roots of all programs on the accessibility bus."""
    desktop = Atspi.get_desktop(0)
    return [child(desktop, i) for i in range(desktop.get_child_count())]


def walk(node, depth=0, widest=None):
    """Yields a node of the accessibility tree and everything below it, except below nodes with more than `widest` children.
    Nodes that disappear meanwhile are skipped."""
    if node is None or depth > 40:
        return
    yield node
    try:
        count = min(node.get_child_count(), 3000)
    except GLib.Error:
        return
    if widest is not None and count > widest:
        return
    for i in range(count):
        try:
            below = child(node, i)
        except Gone:
            continue
        yield from walk(below, depth + 1, widest)


def has_state(node, state):
    try:
        return node.get_state_set().contains(state)
    except GLib.Error:
        return False


def is_on(node, state):
    """Whether a state, given by its name such as "checked", "indeterminate" or "sensitive", is on now."""
    node.clear_cache()
    return has_state(node, getattr(Atspi.StateType, state.upper()))


BY_SIZE = "by size"  # for a toolkit that does not report which nodes are showing


def has_size(node):
    try:
        extents = node.get_extents(Atspi.CoordType.WINDOW)
    except GLib.Error:
        return False
    return extents.width > 0 and extents.height > 0


def matches(node, name=None, role=None, showing=True):
    """`name` may be a compiled pattern."""
    try:
        actual = node.get_name() or ""
        if name is not None and not (name.search(actual) if hasattr(name, "search") else actual == name):
            return False
        if role is not None and role_of(node) != role:
            return False
    except GLib.Error:
        return False
    if showing == BY_SIZE:
        return has_size(node)
    return not showing or has_state(node, Atspi.StateType.SHOWING)


def find_now(root, name=None, role=None, showing=True, widest=None):
    return next((node for node in walk(root, widest=widest) if matches(node, name, role, showing)), None)


def find(root, name=None, role=None, showing=True, patience=PATIENCE, widest=None):
    return eventually(lambda: find_now(root, name, role, showing, widest),
                      lambda: f"{role or 'anything'} named {name!r} in\n{dump(root)}", patience)


def dump(root):
    lines = []
    for node in walk(root):
        try:
            lines.append(f"{role_of(node)} {node.get_name()!r}")
        except GLib.Error:
            pass
    return "\n".join(lines)


def middle(node):
    extents = node.get_extents(Atspi.CoordType.SCREEN)
    return extents.x + min(extents.width // 2, 60), extents.y + extents.height // 2


def xdotool(*words):
    subprocess.run(["xdotool", *map(str, words)], check=True, capture_output=True)


def click(node, button=1, held=None, above_end=None):
    """Clicks in the middle, or this many points above the lower end."""
    x, y = middle(node)
    if above_end is not None:
        extents = node.get_extents(Atspi.CoordType.SCREEN)
        y = extents.y + extents.height - above_end
    xdotool("mousemove", x, y)
    if held:
        xdotool("keydown", held)
    xdotool("click", button)
    if held:
        xdotool("keyup", held)


def press(*keys):
    xdotool("key", *keys)


def act(node, action=None):
    """Performs a node's action of this name, or its first one."""
    names = [Atspi.Action.get_action_name(node, i) for i in range(Atspi.Action.get_n_actions(node))]
    assert Atspi.Action.do_action(node, 0 if action is None else names.index(action)), node.get_name()


def value_of(node):
    return Atspi.Value.get_current_value(node)


def set_value(node, value):
    assert Atspi.Value.set_current_value(node, value)


def set_text(node, text):
    assert Atspi.EditableText.set_text_contents(node, text)


class FocusedNames:
    """Collects the names of the nodes that get the focus from the accessibility bus, also of nodes in no window's tree."""

    def __init__(self):
        self.names = []
        self._listener = Atspi.EventListener.new(self._hear)
        self._listener.register("object:state-changed:focused")

    def _hear(self, event):
        if event.detail1:
            self.names.append(event.source.get_name())

    def next(self, patience=2):
        """The next name, or None when none comes in time."""
        end = time.monotonic() + patience
        while not self.names and time.monotonic() < end:
            if not GLib.MainContext.default().iteration(False):
                time.sleep(0.01)
        return self.names.pop(0) if self.names else None

    def end(self):
        self._listener.deregister("object:state-changed:focused")


def screenshot(path):
    subprocess.run(["import", "-window", "root", path], check=True, capture_output=True)


class Program:
    """A program on this desktop, with its output in a file. GTK 4 does not report which nodes are showing."""

    showing = True

    def __init__(self, *command, **environment):
        self.log = tempfile.NamedTemporaryFile(dir=_place, prefix=os.path.basename(command[0]), delete=False)
        self.process = subprocess.Popen(command, env={**os.environ, **environment}, stdin=subprocess.DEVNULL,
                                        stdout=self.log, stderr=self.log, start_new_session=True)
        self._application = None

    def output(self):
        with open(self.log.name, encoding="utf-8", errors="replace") as stream:
            return stream.read()

    def is_running(self):
        return self.process.poll() is None

    def application(self):
        """The program's root on the accessibility bus; waits for it."""
        if self._application is None:
            self._application = eventually(self._find_application, f"{self.process.args[0]} on the accessibility bus")
        return self._application

    def _find_application(self):
        if not self.is_running():
            raise AssertionError(f"{self.process.args[0]} ended: {self.output()}")
        return next((each for each in applications() if each.get_process_id() == self.process.pid), None)

    def all(self, role=None, name=None):
        """The showing nodes, in their order."""
        return [node for node in walk(self.application()) if matches(node, name, role, self.showing)]

    def find(self, role=None, name=None):
        return find(self.application(), name, role, self.showing)

    def shows(self, name):
        """Waits until a text is shown."""
        return self.find(name=name)

    def dump(self):
        return dump(self.application())

    def end(self):
        """Ends the program and everything that it has started, as a user's session would. Returns its exit status."""
        for number in (signal.SIGTERM, signal.SIGKILL):
            try:
                os.killpg(self.process.pid, number)
            except ProcessLookupError:
                pass
            try:
                self.process.wait(5)
                break
            except subprocess.TimeoutExpired:
                continue
        self.log.close()
        return self.process.returncode
