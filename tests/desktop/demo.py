"""demo.py MANAGER [PICTURE [menu|properties]]: a real file manager shows a folder with files in many states, with the
daemon.

With a picture it runs on a screen of its own, opens the menu or the properties of a file, and ends. Without one it runs on
the present display until its window is closed."""

import glob
import os
import plistlib
import shutil
import subprocess
import sys
import tempfile
import time

manager_name, picture = sys.argv[1], (sys.argv[2:] or [None])[0]
opens_properties = sys.argv[3:] == ["properties"]
TIME_TO_DRAW = 4  # seconds, because no event says that all emblems are drawn
place = tempfile.mkdtemp(prefix="keldane-demo-")
if picture is None:
    # This uses the person's own display, but its own settings.
    os.environ["KELDANE_ON_THIS_DISPLAY"] = "1"
    for name, folder in (("XDG_CONFIG_HOME", "config"), ("XDG_DATA_HOME", "data"), ("XDG_CACHE_HOME", "cache")):
        os.environ[name] = os.path.join(place, folder)
        os.mkdir(os.environ[name])
import desktop  # noqa: E402  needs to know which display it is on
import filemanagers  # noqa: E402
from daemon_client import listens  # noqa: E402

BUILD = filemanagers.BUILD
files, socket = os.path.join(place, "Documents"), os.path.join(place, "keldaned.sock")
plugin = os.path.join(os.environ["XDG_DATA_HOME"], "keldane", "plugins", "Keldane.plugin")
ctl = [os.path.join(BUILD, "bin", "keldanectl"), "--bundle", plugin]


def write(name, content):
    with open(os.path.join(files, name), "w", encoding="utf-8") as stream:
        stream.write(content)


def launcher():
    """A desktop file that opens the built preferences program."""
    path = os.path.join(place, "keldane-preferences.desktop")
    with open(path, "w", encoding="utf-8") as stream:
        stream.write("[Desktop Entry]\nType=Application\nName=Keldane Preferences\n"
                     f"Exec={os.path.join(BUILD, 'bin', 'keldane-preferences')} --bundle {plugin}\n")
    return path


def install():
    shutil.copytree(os.path.join(BUILD, "Keldane.plugin"), plugin)
    info = os.path.join(plugin, "Contents", "Info.plist")
    with open(info, "rb") as stream:
        entries = plistlib.load(stream)
    with open(info, "wb") as stream:
        plistlib.dump({**entries, "DaemonPath": socket, "Prefpane Path": launcher()}, stream)
    source = os.path.join(os.path.dirname(__file__), "..", "..")
    for kind, pattern in (("apps", "clients/icons/keldane.svg"), ("emblems", "hosts/icons/emblem-*.svg")):
        icons = os.path.join(os.environ["XDG_DATA_HOME"], "icons", "hicolor", "scalable", kind)
        os.makedirs(icons)
        for icon in glob.glob(os.path.join(source, pattern)):
            shutil.copy(icon, icons)


def fill():
    os.mkdir(os.path.join(files, "Holiday pictures"))
    write("letter.txt", "Dear reader,\n")
    write("accounts.csv", "".join(f"{i}\n" for i in range(2000)))
    write("Holiday pictures/beach.raw", "x" * 300000)
    subprocess.run([*ctl, "add", os.path.join(files, "Holiday pictures"), os.path.join(files, "accounts.csv")],
                   check=True)
    write("notes.txt", "To be excluded\n")
    subprocess.run([*ctl, "remove", os.path.join(files, "notes.txt")], check=True)
    subprocess.run([*ctl, "watch", "--until-done"], check=True)
    # Files that are added now stay pending.
    subprocess.run([*ctl, "pause", "60"], check=True)
    write("minutes.txt", "New\n")
    subprocess.run([*ctl, "add", os.path.join(files, "minutes.txt")], check=True)


def main():
    install()
    os.mkdir(files)
    daemon = subprocess.Popen([os.path.join(BUILD, "bin", "keldaned"), "--foreground", "--socket", socket, "--store",
                               os.path.join(place, "store.sqlite"), "--root", files])
    try:
        while not listens(socket):
            time.sleep(0.05)
        fill()
        kind = filemanagers.ALL[manager_name]
        remove = kind.prepare() if picture else kind.place_extension()
        try:
            show(kind)
        finally:
            remove()
    finally:
        daemon.terminate()
        daemon.wait()
        shutil.rmtree(place, ignore_errors=True)


def show(kind):
    if picture is None:
        print(f"Right-click a file in {files}. The demo ends with the window.")
        # A separate session is used, because a file manager that runs already has not loaded the extension.
        subprocess.run(["dbus-run-session", "--", *kind.start_command(files)], check=False)
        return
    if kind.columns and not opens_properties:  # a column has the name of the page
        for key in ("default-visible-columns", "default-column-order"):
            filemanagers.set_option(kind.columns, key, "['name', 'size', 'keldane-backup', 'keldane-last-backup']")
    manager = kind(files)
    try:
        manager.select("accounts.csv")
        time.sleep(TIME_TO_DRAW)
        if opens_properties:
            manager.open_properties()
            time.sleep(TIME_TO_DRAW)
            if not manager.tells_of_properties:
                desktop.press("alt+b")  # the page cannot be found otherwise
                time.sleep(1)
        else:
            manager.open_menu()
            manager.entries()
            time.sleep(0.5)
        desktop.screenshot(picture)
    finally:
        manager.end()


main()
