"""The installed packages in a real file manager, as a person uses it who has logged in: the menu with a daemon of the
person's own, and both after an upgrade and a removal. Prints "shown" when the menu is there, and "still there" after each
line that reports a change of the packages: "upgraded", then "removed"."""

import os
import subprocess
import sys

import desktop
import filemanagers

TITLE = "Keldane"
STATUS = "Status: Backed up"


def ctl(*words):
    return subprocess.run(["keldanectl", *words], capture_output=True, text=True, check=False)


def done(*words):
    result = ctl(*words)
    assert result.returncode == 0, (words, result.stdout, result.stderr)


def menu_of(manager):
    """The entries of the file's menu, or none while it has no entry of ours."""
    manager.close_menu()
    manager.open_menu()
    desktop.eventually(manager.is_open, "the menu")
    return [name for name, _ in manager.entries()] if manager.is_in_menu(TITLE) else None


def tell(word):
    print(word, flush=True)


def hear(word):
    heard = sys.stdin.readline().strip()
    assert heard == word, heard


def main():
    manager_class = filemanagers.ALL[sys.argv[1]]
    manager_class.prepare()
    files = os.path.join(os.environ["HOME"], "files")
    os.mkdir(files)
    letter = os.path.join(files, "letter.txt")
    with open(letter, "w", encoding="utf-8") as stream:
        stream.write("Dear reader,")
    done("service", "start")
    desktop.eventually(lambda: ctl("status").returncode == 0, "the daemon")
    done("add", letter)
    done("watch", "--until-done")

    manager = manager_class(files, KELDANE_MENU_PATIENCE="30000")
    manager.select("letter.txt")
    entries = desktop.eventually(lambda: menu_of(manager), "our entry")
    assert entries[0] == STATUS and "Don't Back This Up" in entries, entries
    tell("shown")

    hear("upgraded")
    assert manager.program.is_running(), manager.program.output()
    desktop.eventually(lambda: ctl("status").returncode == 0, "the upgraded daemon")
    desktop.eventually(lambda: (menu_of(manager) or [None])[0] == STATUS, "the menu with the upgraded daemon")
    manager.choose("Don't Back This Up")
    desktop.eventually(lambda: "not selected" in ctl("why", letter).stdout.lower(), "what was chosen")
    tell("still there")

    hear("removed")
    assert manager.program.is_running(), manager.program.output()
    menu_of(manager)
    assert manager.program.is_running(), manager.program.output()
    tell("still there")
    manager.end()


if __name__ == "__main__":
    main()
